// multilog/MultiBackup.cpp -- services on a shared ring as a whole: the copy into one file and permissions.
//
// Files are read from disk, not from a mapping: the page cache shows what others wrote through theirs.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/Fd.h"
#include "logfile/RingFiles.h"
#include "multilog/EndOfData.h"
#include "multilog/RingLock.h"

// ---- Backup --------------------------------------------------------------------------------------

int ZebuMultiLogFile::backupToFile(const char* pszDest, int iFlag)
{
    if (ZEBU_CheckFilePath(pszDest) != 0)
        return -1;
    if (!pszPath)
        return 0;
    if (!manage.isOpen())
        return ZEBU_Fail(ZEBU_EPOS_NOTREADY, 0);
    tagZEBU_MANAGEMENT_DATA rec;
    ZEBURingLock lock(*this);
    if (lock.acquire(&rec) != 0)
        return -1;
    // Under the lock, since it may make the file, and with the record, since another may be current by now.
    if (!trace.isOpen()) {
        (void)followRecord(rec);
        if (openTraceFile(false) != 0)
            return -1;
    }
    if (iFlag == ZEBU2_BACKUP_NOLOCK)
        lock.release();

    ZEBUFd out;
    if (ZEBU_OpenBackup(out.out(), pszDest, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, iFileAttr, pszPath,
                        rec.fileNum, {manage.descriptor(), -1}) != 0)
        return -1;
    if (copyRing(out.get(), rec) != 0)
        return -1;
    if (close(out.release()) != 0)
        return ZEBU_Fail(ZEBU_EPOS_CLOSE, errno);
    return 0;
}

// Copies a file up to its mark. A read that fails ends it like the end of the file.
static int fs_copyData(int iFrom, int iOut, unsigned long ulLimit)
{
    ZEBUEndOfDataScan scan;
    char szBlock[ZEBU_SCAN_BLOCK];
    for (unsigned long ulDone = 0; !scan.found() && ulDone < ulLimit; ulDone += sizeof szBlock) {
        const long lRead = ZEBU_Read(iFrom, szBlock, sizeof szBlock);
        if (lRead <= 0)
            return 0;
        if (ZEBU_WriteAll(iOut, szBlock, scan.examine(szBlock, static_cast<size_t>(lRead))) != 0)
            return -1;
    }
    return 0;
}

int ZebuMultiLogFile::copyRing(int iOut, const tagZEBU_MANAGEMENT_DATA& rec) const
{
    const long lCount = rec.fileNum;
    const long lCurrent = rec.currentFile;
    for (long i = 1; i <= lCount; ++i) {
        const long lNumber = lCurrent + i > lCount ? lCurrent + i - lCount : lCurrent + i;
        char szName[ZEBU_PATH_ROOM];
        if (ZEBU_TraceFileName(szName, pszPath, lNumber, lCount) != 0)
            continue;
        ZEBUFd from;
        const int iOpened = ZEBU_OpenForCopy(from.out(), szName, iOut);
        if (iOpened == -1)
            return -1;
        if (iOpened == 0)
            continue;
        const unsigned long ulLimit = ZEBU_CopyLimit(from.get(), rec.fileSize);
        const unsigned long ulCurrent = rec.writeOffset < ulLimit ? rec.writeOffset : ulLimit;
        const int iResult = lNumber == lCurrent ? ZEBU_CopyFile(from.get(), iOut, ulCurrent)
                                                : fs_copyData(from.get(), iOut, ulLimit);
        if (iResult != 0)
            return -1;
    }
    return 0;
}

// ---- Permissions ---------------------------------------------------------------------------------

// A directory is of use only with execute bits: for the owner always, else where it may be read or written.
static int fs_directoryMode(int iMode)
{
    const int iGroup = iMode & 0060 ? 0010 : 0;
    const int iOthers = iMode & 0006 ? 0001 : 0;
    return iMode | 0100 | iGroup | iOthers;
}

int ZebuMultiLogFile::chFileAttr(int iMode)
{
    if (!pszPath)
        return 0;
    ZEBURingLock lock(*this);
    if (lock.lock() != 0)
        return -1;
    if (ZEBU_ChmodRing(pszPath, lFileNum, iMode) != 0)
        return -1;
    const int iDirErrno = ZEBU_ChmodTrusted(manage.directory(), fs_directoryMode(iMode)) == 0 ? 0 : errno;
    if (ZEBU_ChmodTrusted(manage.name(), iMode, manage.descriptor()) != 0)
        return ZEBU_Fail(ZEBU_EPOS_CHMOD, errno);
    return iDirErrno == 0 ? 0 : ZEBU_Fail(ZEBU_EPOS_CHMOD, iDirErrno);
}
