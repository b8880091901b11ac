// frame/Guards.h -- cancellation and the process mutex for a block.
#ifndef ZEBU_FRAME_GUARDS_H
#define ZEBU_FRAME_GUARDS_H

#include <pthread.h>

#include "frame/GrobalVarUnix.h"

// Keeps the thread from being cancelled for a block: most calls on files are cancellation points, and a
// thread that went away there would take the process mutex with it.
class ZEBUCancelGuard final
{
public:
    ZEBUCancelGuard() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &iState); }
    ~ZEBUCancelGuard() { pthread_setcancelstate(iState, nullptr); }
    ZEBUCancelGuard(const ZEBUCancelGuard&) = delete;
    ZEBUCancelGuard& operator=(const ZEBUCancelGuard&) = delete;

private:
    int iState;
};

// Holds the process mutex for a block that contains no cancellation point. Not recursive: never call an
// entry point while one lives.
class ZEBUShortMutexGuard final
{
public:
    ZEBUShortMutexGuard() { ZEBU_MtLock(); }
    ~ZEBUShortMutexGuard() { ZEBU_MtUnlock(); }
    ZEBUShortMutexGuard(const ZEBUShortMutexGuard&) = delete;
    ZEBUShortMutexGuard& operator=(const ZEBUShortMutexGuard&) = delete;
};

// Holds the process mutex for any other block.
class ZEBUMutexGuard final
{
    const ZEBUCancelGuard cancel;
    const ZEBUShortMutexGuard mutex;
};

#endif
