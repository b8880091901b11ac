// multilog/MultiLock.cpp -- the lock between the processes of a ring.
//
// A record lock on the whole management file, taken without blocking, with a bounded number of attempts.
// It belongs to the process: the process mutex keeps its threads apart, and closing any descriptor of the
// management file drops it. The lock starts at the descriptor's offset, which therefore stays 0.
#include "multilog/RingLock.h"

#include <unistd.h>

// ---- The lock ------------------------------------------------------------------------------------

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
    if ((uMode & ZEBU2_OPT_NOLOCK) || iManageFd == -1)
        return 0;
    if (iLockInit == -1)
        initializeLock();
    if (++uLockCount != 1)
        return 0;
    for (int iAttempt = 1;; ++iAttempt) {
        if (lockf(iManageFd, F_TLOCK, 0) == 0)
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
    if ((uMode & ZEBU2_OPT_NOLOCK) || iManageFd == -1)
        return 0;
    if (uLockCount == 0 || --uLockCount > 0)
        return 0;
    const int iErrno = errno;
    ZEBU_Unlock(iManageFd);
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

// ---- The guard -----------------------------------------------------------------------------------

int ZEBURingLock::lock()
{
    if (file.mp_lock() != 0)
        return -1;
    bHeld = true;
    return 0;
}

int ZEBURingLock::acquire(tagZEBU_MANAGEMENT_DATA* pRec, long lManageLength)
{
    if (lock() != 0)
        return -1;
    // Somebody emptied the file: reading the mapped record would raise SIGBUS.
    if (lManageLength < ZEBU_MANAGE_LENGTH && file.completeManagementFile() != 0) {
        release();
        return -1;
    }
    if (file.takeRecord(pRec) != 0) {
        release(); // nothing to do where it was the lock that could not be had
        return -1;
    }
    // The record was made anew by a process that did not know what the others in the ring asked for.
    if ((pRec->mode & ~file.uMode) != 0)
        file.publishMode();
    return 0;
}

void ZEBURingLock::release()
{
    if (bHeld)
        file.mp_unlock();
    bHeld = false;
}
