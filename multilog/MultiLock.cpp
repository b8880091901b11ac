// multilog/MultiLock.cpp -- the lock between the processes of a ring.
//
// A record lock on the whole management file, taken without blocking, with a bounded number of attempts.
// It belongs to the process: the process mutex keeps its threads apart, and closing any descriptor of the
// management file drops it. The lock starts at the descriptor's offset, which therefore stays 0.
#include <errno.h>
#include <time.h>
#include <unistd.h>

#include "multilog/MultiLogFile.h"

int ZebuMultiLogFile::initializeLock()
{
    return iLockInit = 0;
}

constexpr long cs_lSecond = 1000000; // in microseconds, as all here

static void fs_pauseMicroseconds(long lPause)
{
    if (lPause < cs_lSecond) {
        (void)usleep(static_cast<useconds_t>(lPause));
        return;
    }
    if (sleep(static_cast<unsigned int>(lPause / cs_lSecond)) == 0 && lPause % cs_lSecond != 0)
        (void)usleep(static_cast<useconds_t>(lPause % cs_lSecond));
}

static long fs_clock()
{
    timespec now;
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * cs_lSecond + now.tv_nsec / 1000;
}

// By the clock: each signal ends a pause, and a program that lives with many would give up at once.
static void fs_wait(int iMilliseconds)
{
    long lLeft = iMilliseconds * 1000L;
    const long lEnd = fs_clock() + lLeft;
    do
        fs_pauseMicroseconds(lLeft);
    while ((lLeft = lEnd - fs_clock()) > 0);
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
    if ((uMode & ZEBU2_OPT_NOLOCK) || !manage.isOpen() || uLockCount == 0)
        return 0;
    if (--uLockCount > 0)
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
