// frame/FileFlush.h -- running an operation on the file engine of a log or an instance, for the entry
// points that do nothing else.
#ifndef ZEBU_FRAME_FILEFLUSH_H
#define ZEBU_FRAME_FILEFLUSH_H

#include "frame/Engine.h"
#include "frame/Guards.h"
#include "frame/TraceObject.h"

// Runs `operation` on the process log's engine under the process mutex.
template <class Operation>
int ZEBU_OnProcessEngine(Operation operation)
{
    const ZEBUMutexGuard lock;
    return operation(ZEBU_ProcessEngine());
}

// The same for an instance; fails with 11 when it is not live. Null is refused by the caller.
template <class Operation>
int ZEBU_OnInstanceEngine(ZEBU2_HINSTANCE hInstance, Operation operation)
{
    const ZEBUMutexGuard lock;
    if (ZEBU_CheckInstance(hInstance) != 0)
        return ZEBU_Fail(ZEBU_EPOS_NOTREADY, 0);
    return operation(hInstance->engine());
}

#endif
