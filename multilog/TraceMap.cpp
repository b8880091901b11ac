// multilog/TraceMap.cpp -- the trace file of a shared ring that this process has open, and its mapping.
#include "multilog/TraceMap.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "frame/ErrPos.h"
#include "logfile/RingFiles.h"
#include "multilog/EndOfData.h"

constinit long ZEBUTraceMap::cs_PAGESIZE = 0;

ZEBUTraceMap::ZEBUTraceMap()
{
    if (cs_PAGESIZE == 0)
        cs_PAGESIZE = sysconf(_SC_PAGESIZE);
}

int ZEBUTraceMap::generateTraceFileName(const char* pszPrefix, long lFileNumber, long lFileNum)
{
    lNumber = lFileNumber;
    return ZEBU_TraceFileName(szTraceFileName, pszPrefix, lFileNumber, lFileNum);
}

// ---- Preparing -----------------------------------------------------------------------------------

// A file that was only completed must not pass for the newest when the record has to be rebuilt: it keeps the
// time it had, or gets one before that of the current file.
static void fs_setBackTime(int iFd, const struct stat* pBefore)
{
    const timespec now = {time(nullptr) - 1, 0};
    const timespec aTimes[2] = {{0, UTIME_OMIT}, pBefore ? pBefore->st_mtim : now};
    (void)futimens(iFd, aTimes);
}

int ZEBUTraceMap::prepare(const Shape& shape, bool bCurrent)
{
    struct stat info;
    const bool bExisted = stat(szTraceFileName, &info) == 0;
    if (!bExisted && !ZEBU_IsAbsent(errno)) // taken for a new file, its data would be lost
        return ZEBU_Fail(ZEBU_EPOS_OPEN, errno);
    lFoundLength = bExisted ? info.st_size : 0;
    if (bExisted && (!shape.bFill || lFoundLength >= shape.lLength))
        return 0;
    if (open(shape.iFileAttr) != 0)
        return -1;
    auto uSize = static_cast<unsigned int>(lFoundLength < UINT_MAX ? lFoundLength : UINT_MAX);
    if (initializeTraceFile(shape, bExisted, &uSize) != 0)
        return -1;
    if (!bCurrent)
        fs_setBackTime(iTraceFd, bExisted ? &info : nullptr);
    return 0;
}

int ZEBUTraceMap::open(int iFileAttr)
{
    ulTraceIno = 0;
    return ZEBU_OpenFile(&iTraceFd, szTraceFileName, O_RDWR | O_CREAT, iFileAttr);
}

int ZEBUTraceMap::initializeTraceFile(const Shape& shape, bool bExisted, unsigned int* puSize)
{
    if (lseek(iTraceFd, 0, SEEK_END) == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    if (!shape.bFill || !bExisted) {
        char szMark[ZEBU_EOD_MARK];
        ZEBU_PutEndOfData(szMark);
        if (ZEBU_WriteAll(iTraceFd, szMark, sizeof szMark) != 0)
            return -1;
        *puSize += ZEBU_EOD_MARK;
    }
    if (shape.bFill) {
        if (ZEBU_FillFile(iTraceFd, ' ', *puSize, shape.lLength) != 0)
            return -1;
        *puSize = static_cast<unsigned int>(shape.lLength);
    }
    if (lseek(iTraceFd, 0, SEEK_SET) == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    return 0;
}

// The blocks are reserved before anything is stored: a store into a hole of a file on a full disk is no
// failed call but a signal that ends the process.
int ZEBUTraceMap::extend(long lLength)
{
    (void)futimens(iTraceFd, nullptr); // the newest file is found by its time
    struct stat info;
    if (fstat(iTraceFd, &info) != 0)
        return ZEBU_Fail(ZEBU_EPOS_STAT, errno);
    ulTraceIno = info.st_ino;
    ulTraceDev = info.st_dev;
    if (info.st_size < lFoundLength)
        lFoundLength = info.st_size;
    // A file that has its length may still have holes, and a store into one needs a block as well.
    const bool bShort = info.st_size < lLength;
    if (!bShort && info.st_blocks * 512L >= lLength)
        return 0;
    const int iReserved = ZEBU_ReserveBlocks(iTraceFd, lLength);
    if (iReserved == -1)
        return -1;
    if (iReserved == 0 || !bShort)
        return 0;
    if (lseek(iTraceFd, lLength - 1, SEEK_SET) == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    return ZEBU_WriteAll(iTraceFd, "", 1);
}

// ---- The mapping ---------------------------------------------------------------------------------

int ZEBUTraceMap::map(long lLength)
{
    void* pMap = mmap(nullptr, static_cast<size_t>(lLength), PROT_READ | PROT_WRITE, MAP_SHARED, iTraceFd, 0);
    if (pMap == MAP_FAILED)
        return ZEBU_Fail(ZEBU_EPOS_MMAP, errno);
    pTraceMap = pMap;
    lMappedLength = lLength;
    lSyncedOffset = 0;
    return 0;
}

// A file that was emptied or removed has lost data below the write offset. What stands there now (blanks,
// zero bytes, or the mark of a file just made) would end or derail every search for the end of the data: make
// it one blank line.
void ZEBUTraceMap::fillGap(long lWriteOffset)
{
    if (lFoundLength >= lWriteOffset || lWriteOffset > lMappedLength)
        return;
    const auto uGap = static_cast<size_t>(lWriteOffset - lFoundLength);
    char* pGap = static_cast<char*>(pTraceMap) + lFoundLength;
    memset(pGap, ' ', uGap);
    if (uGap >= 2)
        memcpy(pGap + uGap - 2, "\r\n", 2);
}

bool ZEBUTraceMap::isOurs(const struct stat& info) const
{
    return ulTraceIno == 0 || (info.st_ino == ulTraceIno && info.st_dev == ulTraceDev);
}

// A look that fails says nothing about the file, and the mapping lasts without the descriptor.
ZEBUTraceMap::State ZEBUTraceMap::look() const
{
    struct stat info;
    if (fstat(iTraceFd, &info) != 0)
        return State::Whole;
    if (!isOurs(info))
        return State::Foreign;
    return info.st_size < lMappedLength || info.st_nlink == 0 ? State::Cut : State::Whole;
}

// A process may be killed between any two of these stores. Up to the last but one the old place of the mark
// holds its byte, and whoever looks for the end of the data finds it there; then the line and the mark behind
// it are complete. Only then may the record follow. The fences keep the compiler from changing the order; the
// processor keeps the order of stores by itself.
void ZEBUTraceMap::store(unsigned long ulOffset, const char* pszText, unsigned long ulLength)
{
    char* pLine = static_cast<char*>(pTraceMap) + ulOffset;
    __atomic_store_n(pLine, ZEBU_EOD_BYTE, __ATOMIC_RELEASE); // a killed process may have left a first byte
    std::atomic_signal_fence(std::memory_order_seq_cst);
    ZEBU_PutEndOfData(pLine + ulLength);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    memcpy(pLine + 1, pszText + 1, ulLength - 1);
    __atomic_store_n(pLine, pszText[0], __ATOMIC_RELEASE);
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

int ZEBUTraceMap::sync(unsigned int uWriteOffset)
{
    if (!isMapped())
        return ZEBU_Fail(ZEBU_EPOS_FLUSH, EINVAL);
    if (lSyncedOffset > uWriteOffset) // the ring came round
        lSyncedOffset = 0;
    const long lStart = lSyncedOffset - lSyncedOffset % cs_PAGESIZE;
    const long lEnd = static_cast<long>(uWriteOffset) + ZEBU_EOD_MARK;
    // The end may lie behind the mapping: another process wrote a long line, or the offset is damaged. The
    // kernel says what it thinks of that, and touches nothing: it is only asked to start writing.
    if (msync(static_cast<char*>(pTraceMap) + lStart, static_cast<size_t>(lEnd - lStart), MS_ASYNC) != 0)
        return ZEBU_Fail(ZEBU_EPOS_FLUSH, errno);
    lSyncedOffset = uWriteOffset;
    return 0;
}

// ---- Closing -------------------------------------------------------------------------------------

int ZEBUTraceMap::closeTraceFile(bool bTouch)
{
    if (isMapped()) {
        if (munmap(pTraceMap, static_cast<size_t>(lMappedLength)) != 0)
            return ZEBU_Fail(ZEBU_EPOS_MUNMAP, errno);
        pTraceMap = MAP_FAILED;
        lMappedLength = 0;
    }
    return closeDescriptor(bTouch);
}

int ZEBUTraceMap::closeDescriptor(bool bTouch)
{
    if (iTraceFd == -1)
        return 0;
    struct stat info;
    if (fstat(iTraceFd, &info) == 0 && !isOurs(info)) {
        iTraceFd = -1;
        return 0;
    }
    if (bTouch)
        (void)futimens(iTraceFd, nullptr);
    const int iErrno = close(iTraceFd) == 0 ? 0 : errno;
    if (iErrno != EBADF) // whatever else close says, the descriptor is gone
        iTraceFd = -1;
    return iErrno == 0 ? 0 : ZEBU_Fail(ZEBU_EPOS_CLOSE, iErrno);
}
