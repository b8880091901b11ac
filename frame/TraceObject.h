// frame/TraceObject.h -- a trace instance: a ring, a name, a level and thresholds of its own.
#ifndef ZEBU_FRAME_TRACEOBJECT_H
#define ZEBU_FRAME_TRACEOBJECT_H

#include <stddef.h>

#include <atomic>

#include "frame/Engine.h"
#include "frame/FileOpen.h"
#include "frame/GrobalVarUnix.h"

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
    ZEBUEngineRef engine() const { return {pLogFile, pMultiLogFile}; }

    // Makes the engine and opens it, unless no ring is described. As ZEBU_StartSingle, ZEBU_StartShared.
    int createLogFileObject(const tagZEBU_LOGFILE_SPEC* pSpec, int iOption, ZEBUMode eMode);
    // Closes the engine's files. Returns 0 or the failing close's result.
    int closeLogFileObject();
    // Deletes the engine, and closes it if need be.
    void deleteLogFileObject();

    char szTag[4];
    ZebuLogFile* pLogFile;
    ZebuMultiLogFile* pMultiLogFile;
    char szAppName[ZEBU_APP_NAME + 1];
    std::atomic<int> iLogLevel;
    std::atomic<int> iFileThreshold;
    std::atomic<int> iShmThreshold;
    bool bHoldsMMap;  // the instance is one of the users that the trace area counts
    bool bCountedOff; // a deletion was tried: the instance is a user of the process's objects no more
};

// 0 when the handle is a live instance. Does not touch the memory of one that is not.
int ZEBU_CheckInstance(const ZEBUTraceObject* hInstance);

#endif
