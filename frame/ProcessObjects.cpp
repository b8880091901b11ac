// frame/ProcessObjects.cpp -- the start and the end of the process-wide objects.
#include "frame/ProcessObjects.h"

#include "frame/ErrPos.h"
#include "frame/GrobalVarUnix.h"
#include "frame/TLS.h"
#include "mmap/MMap.h"

constinit ZEBUEngine ZEBU2_Engine;
bool ZEBU2_bHoldsMMap;

static int cs_iInitCallCount;

void ZEBU_InitializeGrobalVar()
{
    if (cs_iInitCallCount == 0) {
        ZEBU_StoreAppName(nullptr);
        ZEBU_InitializeTlsIndex();
    }
    ZEBU_StoreProcessId();
    ++cs_iInitCallCount;
}

void ZEBU_UninitializeGrobalVar()
{
    if (--cs_iInitCallCount != 0)
        return;
    ZEBU2_Engine.discard();
    const ZEBUErrKeep keep;
    delete ZEBU2_pMMap.exchange(nullptr);
}
