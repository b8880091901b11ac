// multilog/RingLock.h -- the lock of a shared ring for a block.
#ifndef ZEBU_MULTILOG_RINGLOCK_H
#define ZEBU_MULTILOG_RINGLOCK_H

#include "multilog/MultiLogFile.h"

// The common beginning of every operation on a ring, and its end. Keeps errno when it releases.
class ZEBURingLock final
{
public:
    explicit ZEBURingLock(ZebuMultiLogFile& ring) : file(ring) {}
    ~ZEBURingLock() { release(); }
    ZEBURingLock(const ZEBURingLock&) = delete;
    ZEBURingLock& operator=(const ZEBURingLock&) = delete;

    // Takes the lock alone. Fails with 22.
    int lock();
    // Takes the lock, reads the record (repairing it when it is damaged) and takes over its mode. On failure
    // nothing is held. lManageLength: length of the management file if known; a short one is completed first.
    int acquire(tagZEBU_MANAGEMENT_DATA* pRec, long lManageLength = 0);
    void release();

private:
    ZebuMultiLogFile& file;
    bool bHeld = false;
};

#endif
