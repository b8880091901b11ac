// frame/Fd.h -- descriptors: above the standard ones, and closed at the end of a block. Includes nothing of
// the library's state.
#ifndef ZEBU_FRAME_FD_H
#define ZEBU_FRAME_FD_H

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

// Moves a descriptor that was just opened out of the way of standard input, output and error, which a daemon
// may have closed: what the application prints must not land in a file of the library. To be called before
// anything is locked on it, since closing the low one drops locks. Returns the descriptor, or -1 with errno.
inline int ZEBU_Lift(int iFd)
{
    if (iFd < 0 || iFd > STDERR_FILENO)
        return iFd;
    const int iLifted = fcntl(iFd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int iErrno = errno;
    (void)close(iFd);
    errno = iErrno;
    return iLifted;
}

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
