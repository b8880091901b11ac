// multilog/MultiWrite.cpp -- the write path of a shared ring: one line from the put operations to the bytes
// of the mapped file, moving the ring on, the file headers, and the flush.
#include <string.h>
#include <sys/stat.h>

#include <atomic>

#include "frame/GrobalVarUnix.h"
#include "logfile/FileHeader.h"
#include "multilog/EndOfData.h"
#include "multilog/RingLock.h"
#include "output/ltostr.h"

// Room that is kept for the header of a file when a line opens it.
constexpr unsigned long ZEBU_HEADER_ROOM = 317;
static_assert(ZEBU_HEADER_ROOM >= ZEBU_FILE_HEADER_MAX);

// No text is near it; below it no sum of offset, text and mark leaves 32 bits.
constexpr unsigned long ZEBU_TEXT_MAX = 0x7FFFFFFF - ZEBU_HEADER_ROOM - ZEBU_EOD_MARK;

// ---- One text ------------------------------------------------------------------------------------

int ZebuMultiLogFile::putMessage(const char* pszLine, unsigned long ulLength)
{
    if (!pszLine)
        return ZEBU_Fail(ZEBU_EPOS_PARAM, 0);
    if (!pszPath)
        return 0;
    if (iManageFd == -1)
        return ZEBU_Fail(ZEBU_EPOS_NOTREADY, 0);
    return selectAndWriteFile(pszLine, ulLength, nullptr, false);
}

int ZebuMultiLogFile::selectAndWriteFile(const char* pszText, unsigned long ulLength,
                                         tagZEBU_MANAGEMENT_DATA* pRec, bool bIsHeader)
{
    if (ulLength == 0)
        return 0;
    if (!pszText || ulLength > ZEBU_TEXT_MAX)
        return ZEBU_Fail(ZEBU_EPOS_PARAM, 0);
    long lManageLength;
    if (checkManagementIdentity(&lManageLength) != 0)
        return -1;
    if (pRec)
        return writeUnderLock(pszText, ulLength, pRec, bIsHeader);
    tagZEBU_MANAGEMENT_DATA rec;
    ZEBURingLock lock(*this);
    if (lock.acquire(&rec, lManageLength) != 0)
        return -1;
    return writeUnderLock(pszText, ulLength, &rec, bIsHeader);
}

int ZebuMultiLogFile::writeUnderLock(const char* pszText, unsigned long ulLength,
                                     tagZEBU_MANAGEMENT_DATA* pRec, bool bIsHeader)
{
    bool bReopen = followRecord(*pRec);
    bool bHeader = false;
    if (pRec->writeOffset + ulLength + ZEBU_EOD_MARK > pRec->fileSize) {
        bHeader = moveRingOn(pRec, ulLength, bIsHeader);
        bReopen = true;
    }
    if (bReopen && openTraceFile(false) != 0)
        return -1;
    if (bHeader && putFileHeader(pRec, false) != 0)
        return -1;
    return storeText(pszText, ulLength, pRec);
}

bool ZebuMultiLogFile::followRecord(const tagZEBU_MANAGEMENT_DATA& rec)
{
    lFileNum = rec.fileNum;
    if (rec.fileSize != lFileSize)
        lFileSize = lMapSize = rec.fileSize;
    lCurrentFile = rec.currentFile;
    lWriteOffset = rec.writeOffset;
    // Compared with what is mapped, not with what was asked for: an earlier reopen may have failed.
    return !isMapped() || lMappedFile != lCurrentFile || lMappedLength < lMapSize;
}

bool ZebuMultiLogFile::moveRingOn(tagZEBU_MANAGEMENT_DATA* pRec, unsigned long ulLength, bool bIsHeader)
{
    const bool bHeader = !bIsHeader && (uMode & ZEBU2_OPT_NOHEADER) == 0;
    const unsigned long ulNeed = ulLength + ZEBU_EOD_MARK + (bHeader ? ZEBU_HEADER_ROOM : 0);
    if (ulNeed > pRec->fileSize)
        lMapSize = static_cast<long>(ulNeed);
    pRec->currentFile = pRec->currentFile < pRec->fileNum ? pRec->currentFile + 1 : 1;
    pRec->writeOffset = 0;
    lCurrentFile = pRec->currentFile;
    lWriteOffset = 0;
    publishPosition(pRec->currentFile, 0);
    return bHeader;
}

// A process may be killed between any two of these stores. Up to the last but one the old place of the mark
// holds its byte, and whoever looks for the end of the data finds it there; then the line and the mark behind
// it are complete. Only then does the record follow.
int ZebuMultiLogFile::storeText(const char* pszText, unsigned long ulLength, tagZEBU_MANAGEMENT_DATA* pRec)
{
    if (checkTraceLength() != 0)
        return -1;
    const unsigned long ulOffset = pRec->writeOffset;
    if (ulOffset + ulLength + ZEBU_EOD_MARK > static_cast<unsigned long>(lMappedLength))
        return ZEBU_Fail(ZEBU_EPOS_WRITE, EFBIG);

    char* pLine = static_cast<char*>(pTraceMap) + ulOffset;
    __atomic_store_n(pLine, ZEBU_EOD_BYTE, __ATOMIC_RELEASE); // a killed process may have left a first byte
    std::atomic_signal_fence(std::memory_order_seq_cst);
    ZEBU_PutEndOfData(pLine + ulLength);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    memcpy(pLine + 1, pszText + 1, ulLength - 1);
    __atomic_store_n(pLine, pszText[0], __ATOMIC_RELEASE);
    std::atomic_signal_fence(std::memory_order_seq_cst);

    pRec->writeOffset = static_cast<unsigned int>(ulOffset + ulLength);
    lWriteOffset = pRec->writeOffset;
    publishOffset(pRec->writeOffset);
    return 0;
}

int ZebuMultiLogFile::checkTraceLength()
{
    struct stat info;
    if (fstat(iTraceFd, &info) != 0)
        return ZEBU_Fail(ZEBU_EPOS_STAT, errno);
    // Emptied or removed by somebody while it is mapped: complete it, or make it anew.
    if (info.st_size < lMappedLength || info.st_nlink == 0)
        return openTraceFile(false);
    return 0;
}

// ---- Headers -------------------------------------------------------------------------------------

static void fs_putStartLine(char (&szLine)[ZEBU_START_LINE + 2], const char* pszAppName,
                            const tagZEBU_LOGFILE_SPEC& spec, unsigned int uOption)
{
    char szName[ZEBU_APP_NAME + 1];
    char szProcessId[ZEBU_PROCESS_ID + 1];
    ZEBU_LoadAppName(szName);
    ZEBU_LoadProcessId(szProcessId);
    memset(szLine, ' ', sizeof szLine);
    memcpy(szLine, ZEBU_HEADER_MARK, sizeof ZEBU_HEADER_MARK - 1);
    ZEBU_PutField(szLine + ZEBU_START_COL_APP, pszAppName ? pszAppName : szName, ZEBU_APP_NAME);
    memcpy(szLine + ZEBU_START_COL_PID, szProcessId, ZEBU_HEX_WIDTH);
    ZEBU2_IntToStr(szLine + ZEBU_START_COL_SIZE, static_cast<int>(spec.lMaxFileSize), ZEBU_SIZE_WIDTH);
    ZEBU2_IntToStr(szLine + ZEBU_START_COL_FILES, static_cast<int>(spec.lFileCount), ZEBU_FILES_WIDTH);
    ZEBU_PutHex8(szLine + ZEBU_START_COL_OPTION, uOption);
    memcpy(szLine + ZEBU_START_LINE, "\r\n", 2);
}

int ZebuMultiLogFile::putFileHeader(tagZEBU_MANAGEMENT_DATA* pRec, bool bAtOpen)
{
    struct
    {
        char szStart[ZEBU_START_LINE + 2];
        char szFile[ZEBU_FILE_HEADER_MAX];
    } header;
    static_assert(sizeof header == sizeof header.szStart + ZEBU_FILE_HEADER_MAX);

    const bool bStartLine = bAtOpen && (uOption & ZEBU2_OPT_NOSTARTLINE) == 0;
    if (bStartLine)
        fs_putStartLine(header.szStart, pszAppName, {lSpecSize, lSpecFileNum, nullptr}, uOption);
    else if ((pRec->mode & ZEBU2_OPT_NOHEADER) || (bAtOpen && pRec->writeOffset != 0))
        return 0;
    else
        ZEBU_FormatNow(szStartTime);
    const int iLength = ZEBU_BuildFileHeader(header.szFile, {.pszSystem = szSystem,
                                                             .pszHostName = szHostName,
                                                             .pszTimeZone = szTimeZone,
                                                             .pszStartTime = szStartTime,
                                                             .pszLang = szLang});
    const int iTotal = bStartLine ? static_cast<int>(sizeof header.szStart) + iLength : iLength;
    return selectAndWriteFile(bStartLine ? header.szStart : header.szFile, static_cast<unsigned long>(iTotal),
                              pRec, true);
}

// ---- Flush ---------------------------------------------------------------------------------------

int ZebuMultiLogFile::bufferFlush()
{
    if (!pszPath || iManageFd == -1)
        return 0;
    tagZEBU_MANAGEMENT_DATA rec;
    {
        ZEBURingLock lock(*this);
        if (lock.acquire(&rec) != 0 || readAndCheckManagementFileMMap(&rec) != 0)
            return -1;
    }
    return syncMapping(rec);
}

int ZebuMultiLogFile::syncMapping(const tagZEBU_MANAGEMENT_DATA& rec)
{
    if (rec.currentFile != (isMapped() ? lMappedFile : lCurrentFile))
        return 0;
    if (!isMapped())
        return ZEBU_Fail(ZEBU_EPOS_FLUSH, ENOMEM);
    if (lSyncedOffset > rec.writeOffset)
        lSyncedOffset = 0;
    const long lStart = lSyncedOffset - lSyncedOffset % cs_PAGESIZE;
    long lEnd = static_cast<long>(rec.writeOffset) + ZEBU_EOD_MARK;
    if (lEnd > lMappedLength) {
        // The tail of a long line that another process wrote is in the file and not ours to flush; an offset
        // behind the end of the file is damaged.
        struct stat info;
        if (fstat(iTraceFd, &info) != 0 || info.st_size < lEnd)
            return ZEBU_Fail(ZEBU_EPOS_FLUSH, ENOMEM);
        lEnd = lMappedLength;
    }
    if (lEnd > lStart &&
        msync(static_cast<char*>(pTraceMap) + lStart, static_cast<size_t>(lEnd - lStart), MS_ASYNC) != 0)
        return ZEBU_Fail(ZEBU_EPOS_FLUSH, errno);
    lSyncedOffset = rec.writeOffset;
    return 0;
}
