// frame/MPLock.cpp -- the lock parameters of shared rings: entry points only.
#include "frame/ErrPos.h"
#include "frame/GrobalVarUnix.h"
#include "frame/Guards.h"
#include "frame/ProcessObjects.h"
#include "frame/TraceObject.h"
#include "multilog/MultiLogFile.h"

namespace {

// One of the two parameters: what an engine does with it, and where the defaults stand.
struct Parameter
{
    int (ZebuMultiLogFile::*get)();
    int (ZebuMultiLogFile::*set)(int);
    int iProcess;
    int iInstance;
    int iLowest;
};

} // namespace

static constexpr Parameter cs_wait = {&ZebuMultiLogFile::getLockWaitTime, &ZebuMultiLogFile::setLockWaitTime,
                                      ZEBU_LOCK_WAIT, ZEBU_LOCK_INSTANCE_WAIT, 0};
static constexpr Parameter cs_retry = {&ZebuMultiLogFile::getLockRetryTimes,
                                       &ZebuMultiLogFile::setLockRetryTimes, ZEBU_LOCK_RETRY,
                                       ZEBU_LOCK_INSTANCE_RETRY, 1};

static int fs_clamp(const Parameter& parameter, int iValue)
{
    return iValue < parameter.iLowest ? parameter.iLowest : iValue;
}

// ---- Process log ---------------------------------------------------------------------------------

// The process log's ring in `*ppRing`, null when there is no process log and the defaults count. Returns 0,
// or -1 with the failure. The caller holds the process mutex.
static int fs_processRing(ZebuMultiLogFile** ppRing, const ZEBUErrScope& err)
{
    *ppRing = ZEBU2_Engine.exists() ? ZEBU2_Engine.sharedRing() : nullptr;
    return err.finish(*ppRing || !ZEBU2_Engine.exists() ? 0 : -1);
}

static int fs_getProcess(int iFunc, const Parameter& parameter)
{
    const ZEBUErrScope err(iFunc);
    const ZEBUMutexGuard lock;
    ZebuMultiLogFile* pRing;
    if (fs_processRing(&pRing, err) != 0)
        return -1;
    return pRing ? (pRing->*parameter.get)() : ZEBU2_LockValue[parameter.iProcess].load();
}

static int fs_setProcess(int iFunc, const Parameter& parameter, int iValue)
{
    const ZEBUErrScope err(iFunc);
    const ZEBUMutexGuard lock;
    ZebuMultiLogFile* pRing;
    if (fs_processRing(&pRing, err) != 0)
        return -1;
    iValue = fs_clamp(parameter, iValue);
    const int iStored = ZEBU2_LockValue[parameter.iProcess].exchange(iValue);
    return pRing ? (pRing->*parameter.set)(iValue) : iStored;
}

int ZEBU2_GetLockWaitTime(void)
{
    return fs_getProcess(ZEBU_FUNC_GET_LOCK_WAIT_TIME, cs_wait);
}

int ZEBU2_SetLockWaitTime(int iMilliseconds)
{
    return fs_setProcess(ZEBU_FUNC_SET_LOCK_WAIT_TIME, cs_wait, iMilliseconds);
}

int ZEBU2_GetLockRetryTimes(void)
{
    return fs_getProcess(ZEBU_FUNC_GET_LOCK_RETRY_TIMES, cs_retry);
}

int ZEBU2_SetLockRetryTimes(int iTimes)
{
    return fs_setProcess(ZEBU_FUNC_SET_LOCK_RETRY_TIMES, cs_retry, iTimes);
}

// ---- Instances -----------------------------------------------------------------------------------

static int fs_getInstance(int iFunc, ZEBU2_HINSTANCE hInstance, const Parameter& parameter)
{
    const ZEBUErrScope err(iFunc);
    if (!hInstance)
        return ZEBU2_LockValue[parameter.iInstance];
    const ZEBULiveInstance instance(hInstance, err);
    if (!instance)
        return -1;
    ZebuMultiLogFile* pRing = instance->engine.sharedRing();
    return pRing ? (pRing->*parameter.get)() : err.finish(-1);
}

static int fs_setInstance(int iFunc, ZEBU2_HINSTANCE hInstance, const Parameter& parameter, int iValue)
{
    const ZEBUErrScope err(iFunc);
    iValue = fs_clamp(parameter, iValue);
    if (!hInstance) {
        const ZEBUShortMutexGuard lock;
        return ZEBU2_LockValue[parameter.iInstance].exchange(iValue);
    }
    const ZEBULiveInstance instance(hInstance, err);
    if (!instance)
        return -1;
    ZebuMultiLogFile* pRing = instance->engine.sharedRing();
    return pRing ? (pRing->*parameter.set)(iValue) : err.finish(-1);
}

int ZEBU2_GetInstanceLockWaitTime(ZEBU2_HINSTANCE hInstance)
{
    return fs_getInstance(ZEBU_FUNC_GET_INSTANCE_LOCK_WAIT_TIME, hInstance, cs_wait);
}

int ZEBU2_SetInstanceLockWaitTime(ZEBU2_HINSTANCE hInstance, int iMilliseconds)
{
    return fs_setInstance(ZEBU_FUNC_SET_INSTANCE_LOCK_WAIT_TIME, hInstance, cs_wait, iMilliseconds);
}

int ZEBU2_GetInstanceLockRetryTimes(ZEBU2_HINSTANCE hInstance)
{
    return fs_getInstance(ZEBU_FUNC_GET_INSTANCE_LOCK_RETRY_TIMES, hInstance, cs_retry);
}

int ZEBU2_SetInstanceLockRetryTimes(ZEBU2_HINSTANCE hInstance, int iTimes)
{
    return fs_setInstance(ZEBU_FUNC_SET_INSTANCE_LOCK_RETRY_TIMES, hInstance, cs_retry, iTimes);
}
