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

// Of the fork that is going on. Written by its thread while no other thread can fork.
static std::atomic<tagZEBU_TLS_VAR**> cs_pForking{nullptr};
static int cs_iRegistrations; // how often the guards were: twice where a first call met a fork
// The locks that were taken for it, not held already by what a signal handler interrupted.
static bool cs_bProcess;
static bool cs_bTime;

static void fs_prepare()
{
    if (cs_pForking.load(std::memory_order_relaxed) == &cs_pOwnTlsVar) {
        ++cs_iRegistrations;
        return;
    }
    const bool bProcess = cs_mutex.lockForFork();
    ZEBU_TlsVarMtLock();
    cs_bTime = ZEBU_TimeLockForFork();
    cs_bProcess = bProcess;
    cs_iRegistrations = 1;
    cs_pForking.store(&cs_pOwnTlsVar, std::memory_order_relaxed);
}

// True for the last of the guards that run behind a fork.
static bool fs_isOver()
{
    if (--cs_iRegistrations > 0)
        return false;
    cs_pForking.store(nullptr, std::memory_order_relaxed);
    return true;
}

static void fs_unlock(void (*unlockList)())
{
    const bool bProcess = cs_bProcess;
    if (cs_bTime)
        ZEBU_TimeUnlock();
    unlockList();
    if (bProcess)
        ZEBU_MtUnlock();
}

static void fs_parent()
{
    if (fs_isOver())
        fs_unlock(ZEBU_TlsVarMtUnlock);
}

static void fs_child()
{
    if (!fs_isOver())
        return;
    ZEBU_uForkGeneration.fetch_add(1, std::memory_order_relaxed);
    ZEBU_LeaveAppendsToParent();
    ZEBU_ForgetAreaUsers();
    fs_unlock(ZEBU_TlsVarMtRenew);
}

void ZEBU_RegisterForkGuards()
{
    (void)pthread_atfork(fs_prepare, fs_parent, fs_child);
}
