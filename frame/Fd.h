// frame/Fd.h -- a file descriptor for a block. Includes nothing of the library's state.
#ifndef ZEBU_FRAME_FD_H
#define ZEBU_FRAME_FD_H

#include <errno.h>
#include <unistd.h>

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
