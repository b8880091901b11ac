// multilog/MultiWrite.cpp -- the write path of a shared ring: one line from the put operations to the bytes
// of the mapped file, moving the ring on, the file headers, and the flush.
#include <string.h>

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
    if (!manage.isOpen())
        return ZEBU_Fail(ZEBU_EPOS_NOTREADY, 0);
    return selectAndWriteFile(pszLine, ulLength);
}

int ZebuMultiLogFile::selectAndWriteFile(const char* pszText, unsigned long ulLength)
{
    if (ulLength == 0)
        return 0;
    if (!pszText || ulLength > ZEBU_TEXT_MAX)
        return ZEBU_Fail(ZEBU_EPOS_PARAM, 0);
    long lManageLength;
    if (manage.checkIdentity(&lManageLength) != 0)
        return -1;
    tagZEBU_MANAGEMENT_DATA rec;
    ZEBURingLock lock(*this);
    if (lock.acquire(&rec, lManageLength) != 0)
        return -1;
    const bool bHeader = (uMode & ZEBU2_OPT_NOHEADER) == 0;
    const int iMoved = selectFile(&rec, ulLength, bHeader ? ZEBU_HEADER_ROOM : 0);
    if (iMoved == -1 || (iMoved == 1 && bHeader && putFileHeader(&rec, false) != 0))
        return -1;
    return storeText(pszText, ulLength, &rec);
}

int ZebuMultiLogFile::selectFile(tagZEBU_MANAGEMENT_DATA* pRec, unsigned long ulLength,
                                 unsigned long ulHeaderRoom)
{
    bool bReopen = followRecord(*pRec);
    // After a reopen that failed: the file of the record is tried again before any other.
    if (!trace.isMapped()) {
        if (openTraceFile(false) != 0)
            return -1;
        bReopen = false;
    }
    const bool bMoveOn = pRec->writeOffset + ulLength + ZEBU_EOD_MARK > pRec->fileSize;
    if (bMoveOn)
        moveRingOn(pRec, ulLength + ZEBU_EOD_MARK + ulHeaderRoom);
    if ((bReopen || bMoveOn) && openTraceFile(false) != 0)
        return -1;
    return bMoveOn ? 1 : 0;
}

bool ZebuMultiLogFile::followRecord(const tagZEBU_MANAGEMENT_DATA& rec)
{
    const bool bResized = rec.fileSize != lFileSize;
    lFileNum = rec.fileNum;
    if (bResized)
        lFileSize = lMapSize = rec.fileSize;
    lCurrentFile = rec.currentFile;
    lWriteOffset = rec.writeOffset;
    // Compared with what is mapped, not with what was asked for: an earlier reopen may have failed.
    return bResized || trace.mappedFile() != lCurrentFile || trace.mappedLength() < lMapSize;
}

// The record is switched before the file is opened: where the opening fails, or this process is killed in it,
// everybody's next line tries that file again.
void ZebuMultiLogFile::moveRingOn(tagZEBU_MANAGEMENT_DATA* pRec, unsigned long ulNeed)
{
    if (ulNeed > pRec->fileSize)
        lMapSize = static_cast<long>(ulNeed);
    pRec->currentFile = pRec->currentFile < pRec->fileNum ? pRec->currentFile + 1 : 1;
    pRec->writeOffset = 0;
    lCurrentFile = pRec->currentFile;
    lWriteOffset = 0;
    manage.publishPosition(pRec->currentFile, 0);
}

int ZebuMultiLogFile::storeText(const char* pszText, unsigned long ulLength, tagZEBU_MANAGEMENT_DATA* pRec)
{
    const ZEBUTraceMap::State eState = trace.look();
    // Where one descriptor is the application's by now, the other may be: then the lock was taken on its
    // file.
    if (eState == ZEBUTraceMap::State::Foreign && !(uMode & ZEBU2_OPT_NOLOCK) && manage.isForeign())
        return ZEBU_Fail(ZEBU_EPOS_MISMATCH, 0);
    // Emptied or removed by somebody while it is mapped: complete it, or make it anew.
    if (eState != ZEBUTraceMap::State::Whole && openTraceFile(false) != 0)
        return -1;
    if (eState == ZEBUTraceMap::State::Cut)
        trace.fillGap(lWriteOffset);
    const unsigned long ulOffset = pRec->writeOffset;
    if (ulOffset + ulLength + ZEBU_EOD_MARK > static_cast<unsigned long>(trace.mappedLength()))
        return ZEBU_Fail(ZEBU_EPOS_WRITE, EFBIG);
    trace.store(ulOffset, pszText, ulLength);

    pRec->writeOffset = static_cast<unsigned int>(ulOffset + ulLength);
    lWriteOffset = pRec->writeOffset;
    manage.publishOffset(pRec->writeOffset);
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
    return writeHeader(bStartLine ? header.szStart : header.szFile, static_cast<unsigned long>(iTotal), pRec);
}

// No header is put before a header, also where it moves the ring on.
int ZebuMultiLogFile::writeHeader(const char* pszText, unsigned long ulLength, tagZEBU_MANAGEMENT_DATA* pRec)
{
    long lManageLength;
    if (manage.checkIdentity(&lManageLength) != 0 || selectFile(pRec, ulLength, 0) == -1)
        return -1;
    return storeText(pszText, ulLength, pRec);
}

// ---- Flush ---------------------------------------------------------------------------------------

int ZebuMultiLogFile::bufferFlush()
{
    if (!pszPath || !manage.isOpen())
        return 0;
    tagZEBU_MANAGEMENT_DATA rec;
    {
        ZEBURingLock lock(*this);
        if (lock.acquire(&rec) != 0 || manage.readAndCheckManagementFileMMap(&rec) != 0)
            return -1;
    }
    // Another file is current by now: nothing of it is ours to flush.
    if (rec.currentFile != (trace.isMapped() ? trace.mappedFile() : lCurrentFile))
        return 0;
    return trace.sync(rec.writeOffset);
}
