// frame/ForkHandler.cpp -- the exported fork handlers, and the library's own.
#include "frame/ForkHandler.h"

#include <pthread.h>

#include "frame/GrobalVarUnix.h"
#include "frame/TLS.h"
#include "mmap/AreaAppend.h"
#include "mmap/AreaUse.h"
#include "output/LocalTime.h"
#include "ZEBULib2.h"

void ZEBU2_PreForkHandler(void) {}
void ZEBU2_PostForkHandlerForParent(void) {}
void ZEBU2_PostForkHandlerForChild(void) {}

static void fs_prepare()
{
    ZEBU_MtLock();
    ZEBU_TlsVarMtLock();
    ZEBU_TimeLock();
}

static void fs_parent()
{
    ZEBU_TimeUnlock();
    ZEBU_TlsVarMtUnlock();
    ZEBU_MtUnlock();
}

static void fs_child()
{
    ZEBU_uForkGeneration.fetch_add(1, std::memory_order_relaxed);
    ZEBU_LeaveAppendsToParent();
    ZEBU_ForgetAreaUsers();
    ZEBU_TimeUnlock();
    ZEBU_TlsVarMtRenew();
    ZEBU_MtUnlock();
}

void ZEBU_RegisterForkGuards()
{
    (void)pthread_atfork(fs_prepare, fs_parent, fs_child);
}
