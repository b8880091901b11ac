// multilog/MultiTrace.cpp -- the trace files of a shared ring: making, filling, mapping and closing them, and
// finding the current one and its end of data when the record has to be rebuilt.
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include "frame/Fd.h"
#include "multilog/EndOfData.h"
#include "multilog/MultiLogFile.h"

int ZebuMultiLogFile::generateTraceFileName(char (&szName)[ZEBU_PATH_ROOM], const char* pszPrefix,
                                            long lNumber) const
{
    return ZEBU_TraceFileName(szName, pszPrefix, lNumber, lFileNum);
}

// ---- Opening and mapping -------------------------------------------------------------------------

int ZebuMultiLogFile::openTraceFile(bool bAtOpen)
{
    if ((iTraceFd != -1 || isMapped()) && closeTraceFile() != 0)
        return -1;
    if (prepareTraceFiles(bAtOpen) == 0 && extendTraceFile() == 0 && mapTraceFile() == 0)
        return 0;
    const ZEBUErrKeep keep;
    (void)closeTraceFile();
    return -1;
}

// In ring order from the file after the current one, so that the current one comes last and stays open.
int ZebuMultiLogFile::prepareTraceFiles(bool bAtOpen)
{
    const bool bFill = (uMode & ZEBU2_OPT_NOFILL) == 0;
    const bool bAll = bAtOpen && (uMode & ZEBU2_OPT_CURRENT_ONLY) == 0;
    long lNumber = bAll ? lCurrentFile + 1 : lCurrentFile;
    for (long lCount = bAll ? lFileNum : 1; lCount > 0; --lCount, ++lNumber) {
        if (closeTraceDescriptor() != 0)
            return -1;
        if (lNumber > lFileNum)
            lNumber = 1;
        if (prepareTraceFile(lNumber, bFill) != 0)
            return -1;
    }
    if (iTraceFd != -1)
        return 0;
    return openFileFunc(&iTraceFd, szTraceFileName, O_RDWR | O_CREAT);
}

// A file that was only completed must not pass for the newest when the record has to be rebuilt: it keeps the
// time it had, or gets one before that of the current file.
static void fs_setBackTime(int iFd, const struct stat* pBefore)
{
    const timespec now = {time(nullptr) - 1, 0};
    const timespec aTimes[2] = {{0, UTIME_OMIT}, pBefore ? pBefore->st_mtim : now};
    (void)futimens(iFd, aTimes);
}

int ZebuMultiLogFile::prepareTraceFile(long lNumber, bool bFill)
{
    if (generateTraceFileName(szTraceFileName, pszPath, lNumber) != 0)
        return -1;
    struct stat info;
    const bool bExisted = stat(szTraceFileName, &info) == 0;
    if (!bExisted && !ZEBU_IsAbsent(errno)) // taken for a new file, its data would be lost
        return ZEBU_Fail(ZEBU_EPOS_STAT, errno);
    lFoundLength = bExisted ? info.st_size : 0;
    if (lFoundLength > 0 && (!bFill || lFoundLength >= lMapSize))
        return 0;
    if (openFileFunc(&iTraceFd, szTraceFileName, O_RDWR | O_CREAT) != 0)
        return -1;
    auto uSize = static_cast<unsigned int>(lFoundLength < UINT_MAX ? lFoundLength : UINT_MAX);
    // An empty one is what a process leaves that failed or died before it wrote the mark.
    if (initializeTraceFile(bFill, bExisted && uSize > 0, &uSize) != 0)
        return -1;
    if (lNumber != lCurrentFile)
        fs_setBackTime(iTraceFd, bExisted ? &info : nullptr);
    return 0;
}

// Many pieces with each call, up to a multiple of their length: what is written in large parts the kernel
// also keeps and maps in large ones, and the lines that are stored there later fault less often.
static int fs_writeBlanks(int iFd, long lFrom, long lTo)
{
    constexpr long lPiece = 1024, lPieces = 64;
    char szBlanks[lPiece];
    memset(szBlanks, ' ', sizeof szBlanks);
    while (lFrom < lTo) {
        const long lMultiple = (lFrom / (lPiece * lPieces) + 1) * lPiece * lPieces;
        const long lEnd = lMultiple < lTo ? lMultiple : lTo;
        iovec pieces[lPieces];
        int iPieces = 0;
        for (long l = lFrom; l < lEnd; l += lPiece)
            pieces[iPieces++] = {szBlanks, static_cast<size_t>(lEnd - l < lPiece ? lEnd - l : lPiece)};
        const ssize_t lWritten = writev(iFd, pieces, iPieces);
        if (lWritten < 0 && errno == EINTR)
            continue;
        if (lWritten != lEnd - lFrom)
            return ZEBU_Fail(ZEBU_EPOS_WRITE, lWritten < 0 ? errno : ENOSPC);
        lFrom = lEnd;
    }
    return 0;
}

int ZebuMultiLogFile::initializeTraceFile(bool bFill, bool bExisted, unsigned int* puSize)
{
    if (lseek(iTraceFd, 0, SEEK_END) == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    if (!bFill || !bExisted) {
        char szMark[ZEBU_EOD_MARK];
        ZEBU_PutEndOfData(szMark);
        if (ZEBU_WriteAll(iTraceFd, szMark, sizeof szMark) != 0)
            return -1;
        *puSize += ZEBU_EOD_MARK;
    }
    if (bFill) {
        if (fs_writeBlanks(iTraceFd, *puSize, lMapSize) != 0)
            return -1;
        *puSize = static_cast<unsigned int>(lMapSize);
    }
    if (lseek(iTraceFd, 0, SEEK_SET) == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    return 0;
}

int ZebuMultiLogFile::extendTraceFile()
{
    (void)futimens(iTraceFd, nullptr);
    struct stat info;
    if (fstat(iTraceFd, &info) != 0)
        return ZEBU_Fail(ZEBU_EPOS_STAT, errno);
    if (info.st_size < lFoundLength)
        lFoundLength = info.st_size;
    // A file that has its length may still have holes, and a store into one needs a block as well.
    const bool bShort = info.st_size < lMapSize;
    if (!bShort && info.st_blocks * 512L >= lMapSize)
        return 0;
    const int iReserved = ZEBU_ReserveBlocks(iTraceFd, lMapSize);
    if (iReserved == -1)
        return -1;
    if (iReserved == 0 || !bShort)
        return 0;
    if (lseek(iTraceFd, lMapSize - 1, SEEK_SET) == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    return ZEBU_WriteAll(iTraceFd, "", 1);
}

int ZebuMultiLogFile::mapTraceFile()
{
    void* pMap =
        mmap(nullptr, static_cast<size_t>(lMapSize), PROT_READ | PROT_WRITE, MAP_SHARED, iTraceFd, 0);
    if (pMap == MAP_FAILED)
        return ZEBU_Fail(ZEBU_EPOS_MMAP, errno);
    pTraceMap = pMap;
    lMappedLength = lMapSize;
    lMappedFile = lCurrentFile;
    lSyncedOffset = 0;
    fillGap();
    return 0;
}

// A file that was emptied or removed has lost data below the write offset. What stands there now (blanks,
// zero bytes, or the mark of a file just made) would end or derail every search for the end of the data: make
// it one blank line.
void ZebuMultiLogFile::fillGap()
{
    if (lFoundLength >= lWriteOffset || lWriteOffset > lMappedLength)
        return;
    const auto uGap = static_cast<size_t>(lWriteOffset - lFoundLength);
    char* pGap = static_cast<char*>(pTraceMap) + lFoundLength;
    memset(pGap, ' ', uGap);
    if (uGap >= 2)
        memcpy(pGap + uGap - 2, "\r\n", 2);
}

// ---- Closing -------------------------------------------------------------------------------------

int ZebuMultiLogFile::closeTraceFile()
{
    if (isMapped()) {
        if (munmap(pTraceMap, static_cast<size_t>(lMappedLength)) != 0)
            return ZEBU_Fail(ZEBU_EPOS_MUNMAP, errno);
        pTraceMap = MAP_FAILED;
        lMappedLength = 0;
        lMappedFile = 0;
    }
    if (iTraceFd != -1)
        (void)futimens(iTraceFd, nullptr); // the newest file is found by its time
    return closeTraceDescriptor();
}

int ZebuMultiLogFile::closeTraceDescriptor()
{
    if (iTraceFd == -1)
        return 0;
    // Whatever close says, the descriptor is gone: closing it again could hit a file of the application.
    const int iResult = close(iTraceFd) == 0 ? 0 : ZEBU_Fail(ZEBU_EPOS_CLOSE, errno);
    iTraceFd = -1;
    return iResult;
}

// ---- Finding the end of the data -----------------------------------------------------------------

int ZebuMultiLogFile::searchEOF(int iNumber) const
{
    char szName[ZEBU_PATH_ROOM];
    if (generateTraceFileName(szName, pszPath, iNumber) != 0)
        return -1;
    const ZEBUFd fd(ZEBU_OpenToRead(szName));
    if (fd.get() == -1)
        return ZEBU_IsAbsent(errno) ? 0 : ZEBU_Fail(ZEBU_EPOS_OPEN, errno);
    const long lEnd = ZEBU_SearchEndOfData(fd.get());
    if (lEnd < 0)
        return ZEBU_Fail(ZEBU_EPOS_READ, errno);
    return lEnd < INT_MAX ? static_cast<int>(lEnd) : INT_MAX;
}

int ZebuMultiLogFile::searchTraceFileData()
{
    lCurrentFile = 1;
    lWriteOffset = 0;
    long lSize;
    const long lNewest = ZEBU_NewestTraceFile(pszPath, lFileNum, &lSize);
    if (lNewest <= 0)
        return static_cast<int>(lNewest);
    lCurrentFile = lNewest;
    lWriteOffset = searchEOF(static_cast<int>(lNewest));
    if (lWriteOffset == -1)
        return -1;
    if (static_cast<unsigned long>(lWriteOffset) < static_cast<unsigned long>(lFileSize))
        return 1;
    lCurrentFile = lNewest < lFileNum ? lNewest + 1 : 1;
    lWriteOffset = 0;
    return 1;
}
