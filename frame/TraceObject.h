// frame/TraceObject.h -- a trace instance: a ring, a name, a level and thresholds of its own.
#ifndef ZEBU_FRAME_TRACEOBJECT_H
#define ZEBU_FRAME_TRACEOBJECT_H

#include <stddef.h>

#include <atomic>

#include "frame/Engine.h"
#include "frame/ErrPos.h"
#include "frame/GrobalVarUnix.h"
#include "frame/Guards.h"

// The levels are read by puts without the process mutex; all else is guarded by it or never changes.
struct ZEBUTraceObject final
{
    ZEBUTraceObject(const tagZEBU_LOGFILE_SPEC* pSpec, const char* pszName);
    ~ZEBUTraceObject();
    ZEBUTraceObject(const ZEBUTraceObject&) = delete;
    ZEBUTraceObject& operator=(const ZEBUTraceObject&) = delete;

    static void* operator new(size_t uSize) noexcept;
    static void operator delete(void* p) noexcept;

    // 0 for a live object, -1 for a destroyed one.
    int isInvalid() const;
    void setAppName(const char* pszName) { ZEBU_PadAppName(szAppName, pszName); }

    char szTag[4];
    ZEBUEngine engine;
    char szAppName[ZEBU_APP_NAME + 1];
    std::atomic<int> iLogLevel;
    std::atomic<int> iFileThreshold;
    std::atomic<int> iShmThreshold;
    bool bHoldsMMap;  // the instance is one of the users that the trace area counts
    bool bCountedOff; // a deletion was tried: the instance is a user of the process's objects no more
};

// 0 when the handle is a live instance. Does not touch the memory of one that is not.
int ZEBU_CheckInstance(const ZEBUTraceObject* hInstance);

// The live instance behind a handle, for a block: nothing deletes it meanwhile, since the process mutex is
// held. Without one, failure 1 (null) or 11 is stored.
class ZEBULiveInstance final
{
public:
    ZEBULiveInstance(ZEBUTraceObject* hInstance, const ZEBUErrScope& err)
        : pInstance(ZEBU_CheckInstance(hInstance) == 0 ? hInstance : nullptr)
    {
        if (!pInstance)
            (void)err.fail(hInstance ? ZEBU_EPOS_NOTREADY : ZEBU_EPOS_PARAM);
    }
    ZEBULiveInstance(const ZEBULiveInstance&) = delete;
    ZEBULiveInstance& operator=(const ZEBULiveInstance&) = delete;

    explicit operator bool() const { return pInstance != nullptr; }
    ZEBUTraceObject* operator->() const { return pInstance; }
    ZEBUTraceObject* get() const { return pInstance; }

private:
    const ZEBUMutexGuard lock;
    ZEBUTraceObject* const pInstance;
};

#endif
