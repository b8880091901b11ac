// frame/TraceLevel.cpp -- levels, thresholds and the time stamp mode: entry points only.
#include "frame/ErrPos.h"
#include "frame/GrobalVarUnix.h"
#include "frame/Guards.h"
#include "frame/TraceObject.h"

// Stores a level or threshold in range; another one is refused. Returns the value before.
static int fs_store(std::atomic<int>& iStored, int iNew, const ZEBUErrScope& err)
{
    if (iNew < ZEBU2_LEVEL_OFF || iNew > ZEBU2_LEVEL_MAX) {
        (void)err.fail(ZEBU_EPOS_PARAM);
        return iStored;
    }
    return iStored.exchange(iNew, std::memory_order_relaxed);
}

// ---- Process log ---------------------------------------------------------------------------------

static int fs_setProcess(int iFunc, std::atomic<int>& iStored, int iNew)
{
    return fs_store(iStored, iNew, ZEBUErrScope(iFunc));
}

int ZEBU2_SetLogLevel(int iLevel)
{
    return fs_setProcess(ZEBU_FUNC_SET_LOG_LEVEL, ZEBU2_Threshold.iLogLevel, iLevel);
}

int ZEBU2_GetLogLevel(void)
{
    const ZEBUErrScope err(ZEBU_FUNC_NONE);
    return ZEBU2_Threshold.iLogLevel.load(std::memory_order_relaxed);
}

int ZEBU2_SetFileThreshold(int iThreshold)
{
    return fs_setProcess(ZEBU_FUNC_SET_FILE_THRESHOLD, ZEBU2_Threshold.iFileThreshold, iThreshold);
}

int ZEBU2_SetShmThreshold(int iThreshold)
{
    return fs_setProcess(ZEBU_FUNC_SET_SHM_THRESHOLD, ZEBU2_Threshold.iShmThreshold, iThreshold);
}

// ---- Instances -----------------------------------------------------------------------------------

// Runs `action` on a live instance under the process mutex. Returns its result, or 0 with the failure.
template <class Action>
static int fs_onInstance(int iFunc, ZEBU2_HINSTANCE hInstance, Action action)
{
    const ZEBUErrScope err(iFunc);
    if (!hInstance) {
        (void)err.fail(ZEBU_EPOS_PARAM);
        return 0;
    }
    const ZEBUMutexGuard lock;
    if (ZEBU_CheckInstance(hInstance) != 0) {
        (void)err.fail(ZEBU_EPOS_NOTREADY);
        return 0;
    }
    return action(hInstance, err);
}

static int fs_setInstance(int iFunc, ZEBU2_HINSTANCE hInstance, std::atomic<int> ZEBUTraceObject::*piStored,
                          int iNew)
{
    return fs_onInstance(iFunc, hInstance, [=](ZEBUTraceObject* pInstance, const ZEBUErrScope& err) {
        return fs_store(pInstance->*piStored, iNew, err);
    });
}

int ZEBU2_SetInstanceLogLevel(ZEBU2_HINSTANCE hInstance, int iLevel)
{
    return fs_setInstance(ZEBU_FUNC_SET_INSTANCE_LOG_LEVEL, hInstance, &ZEBUTraceObject::iLogLevel, iLevel);
}

int ZEBU2_GetInstanceLogLevel(ZEBU2_HINSTANCE hInstance)
{
    return fs_onInstance(
        ZEBU_FUNC_GET_INSTANCE_LOG_LEVEL, hInstance,
        [](ZEBUTraceObject* pInstance, const ZEBUErrScope&) { return pInstance->iLogLevel.load(); });
}

int ZEBU2_SetInstanceFileThreshold(ZEBU2_HINSTANCE hInstance, int iThreshold)
{
    return fs_setInstance(ZEBU_FUNC_SET_INSTANCE_FILE_THRESHOLD, hInstance, &ZEBUTraceObject::iFileThreshold,
                          iThreshold);
}

int ZEBU2_SetInstanceShmThreshold(ZEBU2_HINSTANCE hInstance, int iThreshold)
{
    return fs_setInstance(ZEBU_FUNC_SET_INSTANCE_SHM_THRESHOLD, hInstance, &ZEBUTraceObject::iShmThreshold,
                          iThreshold);
}

// ---- Time stamp mode -----------------------------------------------------------------------------

int ZEBU2_GetTimeStumpMode(void)
{
    return ZEBU2_iTickType.load(std::memory_order_relaxed);
}

int ZEBU2_SetTimeStumpMode(int iMode)
{
    ZEBU2_iTickType.store(iMode, std::memory_order_relaxed);
    return iMode;
}
