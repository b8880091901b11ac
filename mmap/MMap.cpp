// mmap/MMap.cpp -- appending to the trace area, and its rate limit. Memory only: no system call but in
// the wait for another writer.
#include "mmap/MMap.h"

#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include "frame/ErrPos.h"
#include "mmap/AreaGuard.h"

// ---- The ring ------------------------------------------------------------------------------------

namespace {

// The header's fields, each read once and found to lie within the mapping.
struct Ring
{
    uint32_t uSize;
    uint32_t uRead;
    uint32_t uWrite;

    uint32_t room() const { return uRead > uWrite ? uRead - uWrite : uRead + (uSize - uWrite); }
};

} // namespace

static bool fs_readRing(const tagZEBU_AREA_HEADER* pHeader, uint32_t uMapLength, Ring* pRing)
{
    pRing->uSize = __atomic_load_n(&pHeader->uDataSize, __ATOMIC_RELAXED);
    pRing->uWrite =
        __atomic_load_n(&pHeader->uWriteOffset, __ATOMIC_ACQUIRE);           // and the append before this one
    pRing->uRead = __atomic_load_n(&pHeader->uReadOffset, __ATOMIC_ACQUIRE); // the consumer is done before it
    return __atomic_load_n(&pHeader->uMagic, __ATOMIC_RELAXED) == ZEBU_AREA_MAGIC &&
           uMapLength >= sizeof *pHeader && pRing->uSize <= uMapLength - sizeof *pHeader &&
           pRing->uWrite <= pRing->uSize && pRing->uRead <= pRing->uSize;
}

// Copies in pieces, looking before each whether the guard is still held: a writer that was stopped here
// and passed over must not write on into the lines of others. False when it was.
[[gnu::noinline]] static bool fs_copyGuarded(const tagZEBU_AREA_HEADER* pHeader, uint32_t uGuard, char* pTo,
                                             const char* pFrom, uint32_t uLength)
{
    constexpr uint32_t uPiece = 256;
    while (uLength > 0) {
        const uint32_t uNow = uLength < uPiece ? uLength : uPiece;
        if (!ZEBU_HoldsAreaGuard(pHeader, uGuard))
            return false;
        memcpy(pTo, pFrom, uNow);
        pTo += uNow;
        pFrom += uNow;
        uLength -= uNow;
    }
    return true;
}

enum class Store { Done, PassedOver, NoRoom, Damaged };

// One append under the guard, which is free again afterwards.
static Store fs_storeLine(tagZEBU_AREA_HEADER* pHeader, uint32_t uMapLength, uint32_t uGuard,
                          const char* pData, uint32_t uLength)
{
    Ring ring;
    const bool bSound = fs_readRing(pHeader, uMapLength, &ring);
    if (!bSound || uLength >= ring.room()) {
        ZEBU_DropAreaGuard(pHeader, uGuard);
        return bSound ? Store::NoRoom : Store::Damaged;
    }
    char* pRing = reinterpret_cast<char*>(pHeader + 1);
    const uint32_t uToEnd = ring.uSize - ring.uWrite;
    const uint32_t uFirst = uLength < uToEnd ? uLength : uToEnd;
    if (!fs_copyGuarded(pHeader, uGuard, pRing + ring.uWrite, pData, uFirst) ||
        !fs_copyGuarded(pHeader, uGuard, pRing, pData + uFirst, uLength - uFirst)) {
        ZEBU_DropAreaGuard(pHeader, uGuard);
        return Store::PassedOver;
    }
    const uint32_t uNext = uLength <= uToEnd ? ring.uWrite + uLength : uLength - uToEnd;
    return ZEBU_CommitAppend(pHeader, uGuard, ring.uWrite, uNext) ? Store::Done : Store::PassedOver;
}

ZEBUAppend ZEBU_AppendToArea(void* pMap, uint32_t uMapLength, const void* pData, uint32_t uLength)
{
    auto* pHeader = static_cast<tagZEBU_AREA_HEADER*>(pMap);
    // Being passed over takes a stop of a tenth of a second each time; without a bound a process that
    // scribbles over the header could keep this one here.
    for (int iTry = 0; iTry < 8; ++iTry) {
        Ring ring;
        if (!fs_readRing(pHeader, uMapLength, &ring))
            return ZEBU_APPEND_DAMAGED;
        if (uLength >= ring.room()) // a full area is not worth the guard
            return ZEBU_APPEND_NO_ROOM;
        const uint32_t uGuard = ZEBU_TakeAreaGuard(pHeader);
        if (uGuard == 0)
            return ZEBU_APPEND_NO_ROOM;
        switch (fs_storeLine(pHeader, uMapLength, uGuard, static_cast<const char*>(pData), uLength)) {
        case Store::Done:
            return ZEBU_APPEND_STORED;
        case Store::NoRoom:
            return ZEBU_APPEND_NO_ROOM;
        case Store::Damaged:
            return ZEBU_APPEND_DAMAGED;
        case Store::PassedOver:
            break;
        }
    }
    return ZEBU_APPEND_NO_ROOM;
}

// ---- The two ways in -----------------------------------------------------------------------------

void* ZEBUMMapFile::operator new(size_t uSize) noexcept
{
    return ZEBU_AllocateObject(uSize);
}

void ZEBUMMapFile::operator delete(ZEBUMMapFile* p, std::destroying_delete_t)
{
    p->relRef();
    const bool bLast = p->iRefCount < 1;
    p->~ZEBUMMapFile();
    if (bLast && ZEBU_WaitForSigSafePuts()) // a handler on another thread may still hold the address
        free(p);
}

int ZEBUMMapFile::writeToMMap(const void* pData, unsigned int uLength)
{
    void* const pArea = pMap.load(std::memory_order_relaxed);
    if (pArea == MAP_FAILED || !pData) {
        ZEBU_SetErrPosOnly(pArea == MAP_FAILED ? ZEBU_EPOS_NOTREADY : ZEBU_EPOS_PARAM);
        return -1;
    }
    if (uLength == 0)
        return 0;
    if (ZEBU_AppendToArea(pArea, uMapLength, pData, uLength) == ZEBU_APPEND_DAMAGED)
        return ZEBU_Fail(ZEBU_EPOS_AREA, errno);
    return 0;
}

static int fs_failSigSafe(int iPos)
{
    ZEBU2_PutMsgSigSafe_ErrorPos = iPos;
    return -1;
}

int ZEBUMMapFile::writeToMMapSigSafe(const void* pData, unsigned int uLength)
{
    void* const pArea = pMap.load();
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

timeval fs_zebu_mmap_interval_sec;
unsigned int g_zebu_mmap_output_max;
constinit tagZEBU_PERIOD_START fs_zebu_last_update_time = {{0}, 0};
unsigned int fs_zebu_mmap_output_count;

void ZEBU_initMMapLimitValues(int iIntervalSec, int iMaxMsgNum)
{
    if (static_cast<unsigned int>(iIntervalSec) <= ZEBU_INTERVAL_SEC_MAX)
        fs_zebu_mmap_interval_sec = {iIntervalSec, 0};
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
    return lElapsed < fs_zebu_mmap_interval_sec.tv_sec ? 1 : fs_beginPeriod(pNow);
}
