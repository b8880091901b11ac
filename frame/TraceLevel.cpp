// frame/TraceLevel.cpp -- levels, thresholds and the time stamp mode: entry points only.
#include "frame/ErrPos.h"
#include "frame/GrobalVarUnix.h"
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

static int fs_setInstance(int iFunc, ZEBU2_HINSTANCE hInstance, std::atomic<int> ZEBUTraceObject::*piStored,
                          int iNew)
{
    const ZEBUErrScope err(iFunc);
    const ZEBULiveInstance instance(hInstance, err);
    return instance ? fs_store(instance.get()->*piStored, iNew, err) : 0;
}

int ZEBU2_SetInstanceLogLevel(ZEBU2_HINSTANCE hInstance, int iLevel)
{
    return fs_setInstance(ZEBU_FUNC_SET_INSTANCE_LOG_LEVEL, hInstance, &ZEBUTraceObject::iLogLevel, iLevel);
}

int ZEBU2_GetInstanceLogLevel(ZEBU2_HINSTANCE hInstance)
{
    const ZEBUErrScope err(ZEBU_FUNC_GET_INSTANCE_LOG_LEVEL);
    const ZEBULiveInstance instance(hInstance, err);
    return instance ? instance->iLogLevel.load() : 0;
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
