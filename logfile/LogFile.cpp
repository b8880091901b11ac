// logfile/LogFile.cpp -- the ring of trace files that belongs to one process: opening, writing, moving on.
#include "logfile/LogFile.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/Fd.h"
#include "frame/GrobalVarUnix.h"
#include "logfile/FileHeader.h"
#include "logfile/LogSwapMsg.h"

constexpr unsigned long cs_ulAppend = O_WRONLY | O_CREAT | O_APPEND;
constexpr unsigned long cs_ulEmpty = cs_ulAppend | O_TRUNC;

ZebuLogFile::ZebuLogFile(const tagZEBU_LOGFILE_SPEC* pSpec)
{
    pszFilePrefix = nullptr;
    if (!pSpec)
        return;
    ulFileSizeMax = static_cast<unsigned long>(pSpec->lMaxFileSize);
    lFileNum = pSpec->lFileCount;
    iFd = -1;
    strncpy(szFilePrefix, pSpec->pszFilePath, sizeof szFilePrefix - 1);
    szFilePrefix[sizeof szFilePrefix - 1] = '\0';
    pszFilePrefix = szFilePrefix;
    lCurFileNo = 1;
    ulCurFileSize = 0;
    ZEBU_FormatHostName(szHostName);
    ZEBU_FormatSystem(szSystemInfo);
    ZEBU_FormatNow(szStartTime);
    ZEBU_FormatTimeZone(szTimeZone);
    ZEBU_FormatLang(szLangMessage);
    iFileAttr = -1;
    iReadFd = -1;
    bKeepContents = false;
    uForkGeneration = ZEBU_uForkGeneration.load(std::memory_order_relaxed);
}

// ---- Opening -------------------------------------------------------------------------------------

int ZebuLogFile::openFile()
{
    if (!pszFilePrefix)
        return 0;
    if (iFd != -1)
        return ZEBU_Fail(ZEBU_EPOS_NOTREADY, 0);
    if (ZEBU_CheckFilePath(pszFilePrefix) != 0)
        return -1;

    long lSize = 0;
    const long lNewest = ZEBU_NewestTraceFile(pszFilePrefix, lFileNum, &lSize);
    if (lNewest == -1)
        return -1;
    lCurFileNo = lNewest;
    if (lCurFileNo != 0 && static_cast<unsigned long>(lSize) < ulFileSizeMax) {
        ulCurFileSize = static_cast<unsigned long>(lSize);
        return openTraceFile(cs_ulAppend);
    }
    const bool bFirst = lCurFileNo == 0;
    lCurFileNo = lCurFileNo % lFileNum + 1;
    ulCurFileSize = 0;
    return openTraceFile(bFirst ? cs_ulAppend : cs_ulEmpty);
}

int ZebuLogFile::openTraceFile(unsigned long ulFlags)
{
    if (iFd != -1 && closeFile() != 0)
        return -1;
    char szName[ZEBU_PATH_ROOM];
    if (generateTraceFileName(szName, lCurFileNo) != 0 || openLocked(szName, ulFlags) != 0)
        return -1;
    bKeepContents = true;
    uForkGeneration = ZEBU_uForkGeneration.load(std::memory_order_relaxed);
    return putFileHeader();
}

// A file is emptied only once the lock is held: until then it may be another process's.
int ZebuLogFile::openLocked(const char* pszName, unsigned long ulFlags)
{
    ZEBUFd fd;
    if (ZEBU_OpenFile(fd.out(), pszName, static_cast<int>(ulFlags & ~static_cast<unsigned long>(O_TRUNC)),
                      iFileAttr) != 0)
        return -1;
    if (lockf(fd.get(), F_TLOCK, 0) != 0)
        return ZEBU_Fail(ZEBU_EPOS_LOCK, errno);
    if (ulFlags & O_TRUNC) {
        if (ftruncate(fd.get(), 0) != 0)
            return ZEBU_Fail(ZEBU_EPOS_OPEN, errno);
        ulCurFileSize = 0;
    }
    iFd = fd.release();
    return 0;
}

// Opens the current file number again after a failed open, switch or close.
int ZebuLogFile::reopenFile()
{
    ulCurFileSize = 0;
    if (!bKeepContents)
        return openTraceFile(cs_ulEmpty);
    struct stat info;
    if (openTraceFile(cs_ulAppend) != 0)
        return -1;
    if (fstat(iFd, &info) == 0)
        ulCurFileSize = static_cast<unsigned long>(info.st_size);
    return 0;
}

// True when another process holds a file of the ring. This one holds none when it asks.
bool ZebuLogFile::isHeldElsewhere() const
{
    if (iFd != -1 && lockf(iFd, F_TEST, 0) != 0)
        return true;
    for (long n = 1; n <= lFileNum; ++n) {
        char szName[ZEBU_PATH_ROOM];
        if (generateTraceFileName(szName, n) != 0)
            return true;
        const ZEBUFd fd(ZEBU_OpenToRead(szName));
        if (fd.get() != -1 && lockf(fd.get(), F_TEST, 0) != 0)
            return true;
    }
    return false;
}

// In the child of a fork the lock is not inherited with the descriptor, and two processes must not move
// one ring on. The child gets the ring when nobody else is using it any more (a daemon's parent has left).
int ZebuLogFile::takeOverRing()
{
    if (isHeldElsewhere())
        return ZEBU_Fail(ZEBU_EPOS_LOCK, EAGAIN);
    return closeFile() == 0 ? openFile() : -1;
}

int ZebuLogFile::closeFile()
{
    if (!pszFilePrefix)
        return 0;
    ulCurFileSize = 0;
    if (iReadFd != -1)
        (void)close(iReadFd);
    iReadFd = -1;
    if (iFd == -1)
        return 0;
    ZEBU_Unlock(iFd);
    const int iResult = close(iFd);
    iFd = -1; // a close that fails has released the descriptor all the same
    return iResult == 0 ? 0 : ZEBU_Fail(ZEBU_EPOS_CLOSE, errno);
}

// ---- Writing -------------------------------------------------------------------------------------

int ZebuLogFile::putMessage(const char* pszLine, unsigned long ulLength)
{
    if (!pszLine)
        return ZEBU_Fail(ZEBU_EPOS_PARAM, 0);
    if (!pszFilePrefix)
        return 0;
    if (uForkGeneration != ZEBU_uForkGeneration.load(std::memory_order_relaxed)) {
        if (takeOverRing() != 0)
            return -1;
    } else if (iFd == -1 && reopenFile() != 0) {
        return -1;
    }
    return selectAndWriteFile(pszLine, ulLength);
}

int ZebuLogFile::selectAndWriteFile(const char* pszLine, unsigned long ulLength)
{
    if (ulCurFileSize > ulFileSizeMax && moveOn() != 0)
        return -1;
    return writeWhole(pszLine, ulLength);
}

int ZebuLogFile::moveOn()
{
    const int iClosed = closeFile();
    (void)putSyslogMessage(static_cast<int>(lCurFileNo));
    lCurFileNo = lCurFileNo % lFileNum + 1;
    bKeepContents = false;
    if (iClosed != 0) // the lines just written may be lost: the caller is told, the next line goes on
        return -1;
    return openTraceFile(cs_ulEmpty);
}

// Takes the fragment of a short write back, so that no torn line stays. If that fails it is counted.
static unsigned long fs_takeBack(int iFd, long lWritten)
{
    struct stat info;
    if (fstat(iFd, &info) == 0 && info.st_size >= lWritten && ftruncate(iFd, info.st_size - lWritten) == 0)
        return 0;
    return static_cast<unsigned long>(lWritten);
}

int ZebuLogFile::writeWhole(const char* pBytes, size_t uLength)
{
    ssize_t lWritten;
    do
        lWritten = write(iFd, pBytes, uLength);
    while (lWritten < 0 && errno == EINTR);
    if (lWritten == static_cast<ssize_t>(uLength)) {
        ulCurFileSize += uLength;
        return 0;
    }
    const int iErrno = lWritten < 0 ? errno : ENOSPC;
    if (lWritten > 0)
        ulCurFileSize += fs_takeBack(iFd, lWritten);
    return ZEBU_Fail(ZEBU_EPOS_WRITE, iErrno);
}

int ZebuLogFile::putFileHeader()
{
    char szHeader[ZEBU_FILE_HEADER_MAX];
    const int iLength = ZEBU_BuildFileHeader(szHeader, {.pszSystem = szSystemInfo,
                                                        .pszHostName = szHostName,
                                                        .pszTimeZone = szTimeZone,
                                                        .pszStartTime = szStartTime,
                                                        .pszLang = szLangMessage});
    return writeWhole(szHeader, static_cast<size_t>(iLength));
}

int ZebuLogFile::putSyslogMessage(int iFileNo)
{
    if (!ZEBU_IsEnableSwapMsg() || cnf2.szMsgString[0] == '\0')
        return 0;
    char szName[ZEBU_PATH_ROOM];
    if (generateTraceFileName(szName, iFileNo) != 0)
        return -1;
    char szAppName[ZEBU_APP_NAME + 1];
    ZEBU_LoadAppName(szAppName);
    return ZEBU_FormatSwapMsgString(cnf2.szMsgString, szAppName, iFileNo, szName);
}

int ZebuLogFile::bufferFlush()
{
    if (!pszFilePrefix)
        return 0;
    constexpr int iSynchronous = 0x1000; // O_DSYNC
    const int iFlags = fcntl(iFd, F_GETFL);
    if (iFlags == -1 || fcntl(iFd, F_SETFL, iFlags | iSynchronous) != 0 || fcntl(iFd, F_SETFL, iFlags) != 0)
        return ZEBU_Fail(ZEBU_EPOS_FLUSH, errno);
    return 0;
}

// ---- Backup and permissions ----------------------------------------------------------------------

// A file of the ring for copying. The current one through iReadFd, which stays open; others through `fd`.
int ZebuLogFile::openForCopy(long lNumber, ZEBUFd& fd)
{
    char szName[ZEBU_PATH_ROOM];
    if (generateTraceFileName(szName, lNumber) != 0)
        return -1;
    if (lNumber != lCurFileNo)
        return *fd.out() = ZEBU_OpenToRead(szName);
    if (iReadFd == -1)
        iReadFd = ZEBU_OpenToRead(szName);
    else
        (void)lseek(iReadFd, 0, SEEK_SET);
    return iReadFd;
}

int ZebuLogFile::backupToFile(const char* pszDestination, int)
{
    if (ZEBU_CheckFilePath(pszDestination) != 0)
        return -1;
    if (!pszFilePrefix)
        return 0;
    if (iFd == -1)
        return ZEBU_Fail(ZEBU_EPOS_NOTREADY, 0);
    ZEBUFd backup;
    if (ZEBU_RefuseRingFile(pszDestination, pszFilePrefix, lFileNum) != 0 ||
        ZEBU_OpenFile(backup.out(), pszDestination, O_WRONLY | O_CREAT | O_TRUNC, iFileAttr) != 0)
        return -1;
    for (long k = 1; k <= lFileNum; ++k) {
        ZEBUFd fd;
        const int iFrom = openForCopy((lCurFileNo + k - 1) % lFileNum + 1, fd);
        if (iFrom != -1 && ZEBU_CopyFile(iFrom, backup.get(), ULONG_MAX) != 0)
            return -1;
    }
    if (close(backup.release()) != 0)
        return ZEBU_Fail(ZEBU_EPOS_CLOSE, errno);
    return 0;
}

int ZebuLogFile::chFileAttr(int iMode)
{
    return pszFilePrefix ? ZEBU_ChmodRing(pszFilePrefix, lFileNum, iMode) : 0;
}
