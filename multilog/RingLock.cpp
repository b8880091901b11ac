// multilog/RingLock.cpp -- the lock of a shared ring for a block.
#include "multilog/RingLock.h"

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
    if (lManageLength < ZEBU_MANAGE_LENGTH && file.manage.complete() != 0) {
        release();
        return -1;
    }
    if (file.takeRecord(pRec) != 0) {
        release(); // nothing to do where it was the lock that could not be had
        return -1;
    }
    // The record was made anew by a process that did not know what the others in the ring asked for.
    if ((pRec->mode & ~file.uMode) != 0)
        file.manage.publishMode(file.uMode);
    return 0;
}

void ZEBURingLock::release()
{
    if (bHeld)
        file.mp_unlock();
    bHeld = false;
}
