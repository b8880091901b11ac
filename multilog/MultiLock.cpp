// multilog/MultiLock.cpp -- the lock between the processes of a ring.
//
// A record lock on the whole management file, taken without blocking, with a bounded number of attempts.
// It belongs to the process: the process mutex keeps its threads apart, and closing any descriptor of the
// management file drops it. The lock starts at the descriptor's offset, which therefore stays 0.
#include <errno.h>
#include <unistd.h>

#include "multilog/MultiLogFile.h"

int ZebuMultiLogFile::initializeLock()
{
    return iLockInit = 0;
}

static void fs_wait(int iMilliseconds)
{
    if (iMilliseconds <= 999) {
        (void)usleep(static_cast<useconds_t>(iMilliseconds) * 1000);
        return;
    }
    (void)sleep(static_cast<unsigned int>(iMilliseconds / 1000));
    if (iMilliseconds % 1000 != 0)
        (void)usleep(static_cast<useconds_t>(iMilliseconds % 1000) * 1000);
}

int ZebuMultiLogFile::mp_lock()
{
    if ((uMode & ZEBU2_OPT_NOLOCK) || !manage.isOpen())
        return 0;
    if (iLockInit == -1)
        initializeLock();
    if (++uLockCount != 1)
        return 0;
    for (int iAttempt = 1;; ++iAttempt) {
        if (lockf(manage.descriptor(), F_TLOCK, 0) == 0)
            return 0;
        if (iAttempt >= iLockRetryTimes)
            break;
        fs_wait(iLockWaitTime);
    }
    --uLockCount;
    return ZEBU_Fail(ZEBU_EPOS_LOCK, errno);
}

int ZebuMultiLogFile::mp_unlock()
{
    if ((uMode & ZEBU2_OPT_NOLOCK) || !manage.isOpen())
        return 0;
    if (uLockCount == 0 || --uLockCount > 0)
        return 0;
    const int iErrno = errno;
    ZEBU_Unlock(manage.descriptor());
    errno = iErrno;
    return 0;
}

int ZebuMultiLogFile::updateModeAndRetryMpLock(unsigned int uSharedMode)
{
    const unsigned int uNarrowed = uMode & uSharedMode;
    if ((uMode & ZEBU2_OPT_NOLOCK) == (uNarrowed & ZEBU2_OPT_NOLOCK)) {
        uMode = uNarrowed;
        return 0;
    }
    mp_unlock();
    uMode = uNarrowed;
    return mp_lock();
}
