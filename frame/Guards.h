// frame/Guards.h -- undo steps that run when a block is left.
#ifndef ZEBU_FRAME_GUARDS_H
#define ZEBU_FRAME_GUARDS_H

#include <errno.h>
#include <pthread.h>
#include <unistd.h>

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

// Closes a descriptor unless it was released. Closing drops every lock that the process holds on the
// file: not for a file that is locked elsewhere in this process. Keeps errno.
class ZEBUFd final
{
public:
    explicit ZEBUFd(int iDescriptor = -1) : iFd(iDescriptor) {}
    ~ZEBUFd()
    {
        if (iFd == -1)
            return;
        const int iErrno = errno;
        (void)close(iFd);
        errno = iErrno;
    }
    ZEBUFd(const ZEBUFd&) = delete;
    ZEBUFd& operator=(const ZEBUFd&) = delete;

    int get() const { return iFd; }
    int* out() { return &iFd; } // for a function that opens; the guard must be empty
    int release()
    {
        const int iReleased = iFd;
        iFd = -1;
        return iReleased;
    }

private:
    int iFd;
};

#endif
