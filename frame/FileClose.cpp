// frame/FileClose.cpp -- stopping the process log, and the library.
#include "frame/FileClose.h"

#include "frame/ErrPos.h"
#include "frame/GrobalVarUnix.h"
#include "frame/Guards.h"
#include "frame/ProcessObjects.h"
#include "frame/TLS.h"
#include "mmap/MMap.h"

int ZEBU_ReleaseMMap(bool* pbHolds, const ZEBUErrScope& err)
{
    ZEBUMMapFile* pMMap = ZEBU2_pMMap;
    if (!pMMap || !*pbHolds)
        return 0;
    *pbHolds = false;
    pMMap->relRef();
    if (pMMap->refCount() > 0)
        return 0;
    ZEBU2_pMMap = nullptr; // first: a put from now on finds no area, instead of one that is being closed
    const int iResult = err.finish(pMMap->closeFile());
    if (iResult == 0)
        delete pMMap;
    else
        ZEBU2_pMMap = pMMap;
    return iResult;
}

int ZEBU2_Finalize(void)
{
    const ZEBUErrScope err(ZEBU_FUNC_FINALIZE);
    const ZEBUMutexGuard lock;
    if (!ZEBU2_iIsInitialized)
        return err.fail(ZEBU_EPOS_NOTREADY);
    int iResult = 0;
    if (ZEBU2_Engine.exists())
        iResult = ZEBU2_Engine.close(err);
    else if (!ZEBU2_pMMap)
        iResult = err.fail(ZEBU_EPOS_NOTREADY);
    const int iArea = ZEBU_ReleaseMMap(&ZEBU2_bHoldsMMap, err);
    ZEBU2_iIsInitialized = 0;
    ZEBU_UninitializeGrobalVar();
    return iResult != 0 ? iResult : iArea;
}

int ZEBU2_EndLibrary(void)
{
    return ZEBU_TlsVarDeleteAll();
}
