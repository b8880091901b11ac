// mmap/MMap.cpp -- the two ways into the trace area, and its rate limit. Memory only: no system call but in
// the wait for another writer.
#include "mmap/MMap.h"

#include <stdlib.h>
#include <sys/mman.h>

#include "frame/ErrPos.h"
#include "frame/Guards.h"
#include "mmap/AreaAppend.h"
#include "mmap/AreaHeader.h"
#include "mmap/AreaUse.h"

// ---- The two ways in -----------------------------------------------------------------------------

void* ZEBUMMapFile::operator new(size_t uSize) noexcept
{
    return ZEBU_AllocateObject(uSize);
}

void ZEBUMMapFile::operator delete(void* p) noexcept
{
    if (ZEBU_WaitForAreaUsers()) // a put or a handler on another thread may still hold the address
        free(p);
}

int ZEBUMMapFile::refuseLine(bool bMapped)
{
    ZEBU_SetErrPosOnly(bMapped ? ZEBU_EPOS_PARAM : ZEBU_EPOS_NOTREADY);
    return -1;
}

int ZEBUMMapFile::failDamaged()
{
    return ZEBU_Fail(ZEBU_EPOS_AREA, errno);
}

static int fs_failSigSafe(int iPos)
{
    ZEBU2_PutMsgSigSafe_ErrorPos = iPos;
    return -1;
}

int ZEBUMMapFile::writeToMMapSigSafe(const void* pData, unsigned int uLength)
{
    void* const pArea = pMap.load(std::memory_order_acquire);
    if (pArea == MAP_FAILED)
        return fs_failSigSafe(ZEBU_EPOS_NOTREADY);
    if (!pData)
        return fs_failSigSafe(ZEBU_EPOS_PARAM);
    if (uLength == 0)
        return 0;
    const ZEBUAppend eAppend = ZEBU_AppendToArea(pArea, uMapLength, pData, uLength);
    if (eAppend == ZEBU_APPEND_STORED)
        return 0;
    if (eAppend == ZEBU_APPEND_NO_ROOM)
        return fs_failSigSafe(ZEBU_EPOS_PARAM);
    if (tagZEBU_TLS_VAR* pTls = ZEBU_PeekTlsVar()) {
        pTls->iErrorPos = ZEBU_EPOS_AREA;
        pTls->iErrorCode = errno;
    }
    return -1;
}

// ---- The rate limit ------------------------------------------------------------------------------

constinit tagZEBU_LIMIT_TIME fs_zebu_mmap_interval_sec = {{0}, 0};
unsigned int g_zebu_mmap_output_max;
constinit tagZEBU_LIMIT_TIME fs_zebu_last_update_time = {{0}, 0};
unsigned int fs_zebu_mmap_output_count;

void ZEBU_initMMapLimitValues(int iIntervalSec, int iMaxMsgNum)
{
    if (static_cast<unsigned int>(iIntervalSec) <= ZEBU_INTERVAL_SEC_MAX)
        fs_zebu_mmap_interval_sec.tv_sec.store(iIntervalSec, std::memory_order_relaxed);
    if (static_cast<unsigned int>(iMaxMsgNum) <= ZEBU_MSG_NUM_MAX)
        g_zebu_mmap_output_max = static_cast<unsigned int>(iMaxMsgNum);
}

static int fs_beginPeriod(const timeval* pNow)
{
    fs_zebu_last_update_time.tv_sec.store(pNow->tv_sec, std::memory_order_relaxed);
    fs_zebu_last_update_time.tv_usec = pNow->tv_usec;
    fs_zebu_mmap_output_count = 0;
    return 0;
}

int fs_isMsgTooMany(const timeval* pNow)
{
    const long lStartSec = fs_zebu_last_update_time.tv_sec.load(std::memory_order_relaxed);
    const long lStartUsec = fs_zebu_last_update_time.tv_usec;
    if (lStartSec == 0 && lStartUsec == 0)
        return fs_beginPeriod(pNow);
    if (fs_zebu_mmap_output_count + 1 < g_zebu_mmap_output_max) {
        ++fs_zebu_mmap_output_count;
        return 0;
    }
    const long lElapsed = pNow->tv_sec - lStartSec - (pNow->tv_usec < lStartUsec ? 1 : 0);
    // Threads take their times before they come here: a little before the start is late, not a clock that was
    // set back, after which the limit would hold for as long as it was.
    if (lElapsed >= -1 && lElapsed < fs_zebu_mmap_interval_sec.tv_sec.load(std::memory_order_relaxed))
        return 1;
    return fs_beginPeriod(pNow);
}

bool ZEBU_IsAboveLimit(const timeval* pNow)
{
    const ZEBUShortMutexGuard lock;
    return g_zebu_mmap_output_max == 0 || fs_isMsgTooMany(pNow) != 0;
}
