// logfile/LogFile.cpp -- the ring of trace files that belongs to one process: opening, writing, moving on.
#include "logfile/LogFile.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/Fd.h"
#include "frame/GrobalVarUnix.h"
#include "logfile/FileHeader.h"
#include "logfile/LogSwapMsg.h"

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
    ulDevice = 0;
    ulInode = 0;
    bKeepContents = false;
    bPassedOn = false;
    uForkGeneration = ZEBU_uForkGeneration.load(std::memory_order_relaxed);
}

// ---- Opening -------------------------------------------------------------------------------------

// A ring of one process has one owner, who holds a lock on its current file. Whoever opens it locks the file
// it would go on in and then looks whether anybody holds another one: an owner that is moving on holds two
// for a moment, and always one.
int ZebuLogFile::openFile()
{
    if (!pszFilePrefix)
        return 0;
    if (iFd != -1)
        return ZEBU_Fail(ZEBU_EPOS_NOTREADY, 0);
    if (ZEBU_CheckFilePath(pszFilePrefix) != 0)
        return -1;
    for (int i = 0; i < 3; ++i) {
        bool bEmpty;
        if (chooseFile(&bEmpty) != 0)
            return -1;
        // Looked at before it is locked as well, so that no owner meets a lock of ours where it moves on to.
        const long lChosen = lCurFileNo;
        ZEBUFd fd;
        int iFailure = lookForOwner(-1);
        if (iFailure == 0)
            iFailure = openLocked(fd);
        if (iFailure == 0)
            iFailure = lookForOwner(fd.get());
        if (iFailure != 0)
            return ZEBU_Fail(iFailure, errno);
        // Before that an owner may have come and gone, and left lines where none were expected.
        if (chooseFile(&bEmpty) != 0)
            return -1;
        if (lCurFileNo == lChosen)
            return openTraceFile(fd, bEmpty);
    }
    return ZEBU_Fail(ZEBU_EPOS_LOCK, EAGAIN);
}

// Sets lCurFileNo to the file to go on in, and whether its old lines have to go.
int ZebuLogFile::chooseFile(bool* pbEmpty)
{
    long lSize = 0;
    const long lNewest = ZEBU_NewestTraceFile(pszFilePrefix, lFileNum, &lSize);
    if (lNewest == -1)
        return -1;
    const bool bFull = lNewest != 0 && static_cast<unsigned long>(lSize) >= ulFileSizeMax;
    lCurFileNo = lNewest == 0 || bFull ? lNewest % lFileNum + 1 : lNewest;
    *pbEmpty = bFull;
    return 0;
}

// Opens the current file number for reading, too, where that is allowed: the backup reads what is locked
// through this descriptor. Nothing is emptied before the lock is held; until then it may be another
// process's. Returns 0, or the failure number with errno.
int ZebuLogFile::openLocked(ZEBUFd& fd) const
{
    constexpr int iFlags = O_CREAT | O_APPEND;
    char szName[ZEBU_PATH_ROOM];
    if (generateTraceFileName(szName, lCurFileNo) != 0)
        return ZEBU_EPOS_PARAM;
    struct stat info;
    const bool bSpecial =
        stat(szName, &info) == 0 && !S_ISREG(info.st_mode); // a FIFO would be its own reader
    if ((bSpecial || ZEBU_TryOpenFile(fd.out(), szName, O_RDWR | iFlags, iFileAttr) != 0) &&
        (bSpecial || errno == EACCES))
        (void)ZEBU_TryOpenFile(fd.out(), szName, O_WRONLY | iFlags, iFileAttr);
    if (fd.get() == -1)
        return ZEBU_EPOS_OPEN;
    return lockf(fd.get(), F_TLOCK, 0) == 0 ? 0 : ZEBU_EPOS_LOCK;
}

// Makes the file that was opened and locked the current one.
int ZebuLogFile::openTraceFile(ZEBUFd& fd, bool bEmpty)
{
    struct stat info;
    if (fstat(fd.get(), &info) != 0 || (bEmpty && S_ISREG(info.st_mode) && ftruncate(fd.get(), 0) != 0))
        return ZEBU_Fail(ZEBU_EPOS_OPEN, errno);
    ulCurFileSize = bEmpty ? 0 : static_cast<unsigned long>(info.st_size);
    ulDevice = info.st_dev;
    ulInode = info.st_ino;
    iFd = fd.release();
    bKeepContents = true;
    bPassedOn = false;
    uForkGeneration = ZEBU_uForkGeneration.load(std::memory_order_relaxed);
    return putFileHeader();
}

// Returns 0 when no other process holds a file of the ring but the current number, else the failure number
// with errno. `iOwn` shows a file that this process has locked: opening and closing it would give the lock
// up.
int ZebuLogFile::lookForOwner(int iOwn) const
{
    struct stat own;
    const bool bOwn = iOwn != -1 && fstat(iOwn, &own) == 0;
    // In the order in which an owner moves on. It cannot pass the current number while that is locked, and so
    // cannot slip by.
    for (long k = 0; k < lFileNum - 1; ++k) {
        char szName[ZEBU_PATH_ROOM];
        struct stat info;
        if (generateTraceFileName(szName, (lCurFileNo + k) % lFileNum + 1) != 0)
            return ZEBU_EPOS_PARAM;
        if (bOwn && stat(szName, &info) == 0 && info.st_dev == own.st_dev && info.st_ino == own.st_ino)
            continue;
        const ZEBUFd fd(ZEBU_OpenToRead(szName));
        if (fd.get() == -1 && !ZEBU_IsOutOfReach(errno))
            return ZEBU_EPOS_OPEN;
        if (fd.get() != -1 && lockf(fd.get(), F_TEST, 0) != 0)
            return ZEBU_EPOS_LOCK;
    }
    return 0;
}

static bool fs_isOutOfDescriptors(int iErrno)
{
    return iErrno == EMFILE || iErrno == ENFILE;
}

// Goes on after a failed switch, or when the descriptor was lost. Nothing was locked meanwhile.
int ZebuLogFile::reopenFile()
{
    ulCurFileSize = 0;
    if (bKeepContents)
        return openFile();
    {
        ZEBUFd fd;
        int iFailure = lookForOwner(-1);
        if (iFailure == 0)
            iFailure = openLocked(fd);
        if (iFailure == 0) {
            iFailure = lookForOwner(fd.get());
            if (iFailure == ZEBU_EPOS_OPEN && fs_isOutOfDescriptors(errno))
                iFailure = 0; // this one was the last
        }
        if (iFailure != 0)
            return ZEBU_Fail(iFailure, errno);
        if (!isNewerThanLeft(fd.get()))
            return openTraceFile(fd, true);
    }
    return openFile(); // another process has used the ring
}

static bool fs_isLater(const struct stat& left, const struct stat& right)
{
    return left.st_mtim.tv_sec != right.st_mtim.tv_sec ? left.st_mtim.tv_sec > right.st_mtim.tv_sec
                                                       : left.st_mtim.tv_nsec > right.st_mtim.tv_nsec;
}

// Whether the file to be emptied has lines that are younger than those of the file before it.
bool ZebuLogFile::isNewerThanLeft(int iOther) const
{
    char szName[ZEBU_PATH_ROOM];
    struct stat left, other;
    return generateTraceFileName(szName, lCurFileNo > 1 ? lCurFileNo - 1 : lFileNum) == 0 &&
           stat(szName, &left) == 0 && fstat(iOther, &other) == 0 && other.st_size > 0 &&
           fs_isLater(other, left);
}

// ---- Children ------------------------------------------------------------------------------------

// The lock is not inherited with the descriptor. Until the child has it, its lines go where the parent's
// went.
bool ZebuLogFile::isChild() const
{
    return uForkGeneration != ZEBU_uForkGeneration.load(std::memory_order_relaxed);
}

// Takes the lock when nobody holds the ring any more (a daemon's parent has left). Fails as openFile.
int ZebuLogFile::takeOverRing()
{
    forgetForeign();
    if (iFd == -1 || lockf(iFd, F_TEST, 0) != 0)
        return 0;
    int iFailure = lookForOwner(iFd);
    if (iFailure == 0 && lockf(iFd, F_TLOCK, 0) != 0)
        return 0;
    if (iFailure == 0) {
        iFailure = lookForOwner(iFd);
        if (iFailure != 0)
            ZEBU_Unlock(iFd);
    }
    bPassedOn = bPassedOn || iFailure == ZEBU_EPOS_LOCK;
    if (iFailure != 0)
        return 0;
    struct stat info;
    if (bPassedOn || !isNewest() || fstat(iFd, &info) != 0) {
        (void)closeFile();
        return openFile();
    }
    ulCurFileSize = static_cast<unsigned long>(info.st_size);
    uForkGeneration = ZEBU_uForkGeneration.load(std::memory_order_relaxed);
    return 0;
}

bool ZebuLogFile::isNewest() const
{
    struct stat own, info;
    if (fstat(iFd, &own) != 0)
        return false;
    for (long n = 1; n <= lFileNum; ++n) {
        char szName[ZEBU_PATH_ROOM];
        if (generateTraceFileName(szName, n) == 0 && stat(szName, &info) == 0 && fs_isLater(info, own))
            return false;
    }
    return true;
}

// ---- The open file -------------------------------------------------------------------------------

int ZebuLogFile::closeFile()
{
    if (!pszFilePrefix)
        return 0;
    ulCurFileSize = 0;
    forgetForeign();
    if (iFd == -1)
        return 0;
    ZEBU_Unlock(iFd);
    if (close(iFd) == 0) {
        iFd = -1;
        return 0;
    }
    const int iErrno = errno;
    if (iErrno != EBADF) // a close that fails otherwise has released the descriptor all the same
        iFd = -1;
    return ZEBU_Fail(ZEBU_EPOS_CLOSE, iErrno);
}

// Whether a name stands for the file that is open.
bool ZebuLogFile::isOpenUnder(const char* pszName) const
{
    struct stat info;
    return stat(pszName, &info) == 0 && isOurs(info);
}

// A descriptor that the application closed behind the library may be one of its own files by now.
void ZebuLogFile::forgetForeign()
{
    struct stat info;
    if (iFd != -1 && fstat(iFd, &info) == 0 && !isOurs(info))
        iFd = -1;
}

// ---- Writing -------------------------------------------------------------------------------------

int ZebuLogFile::putMessage(const char* pszLine, unsigned long ulLength)
{
    if (!pszLine)
        return ZEBU_Fail(ZEBU_EPOS_PARAM, 0);
    if (!pszFilePrefix)
        return 0;
    if (isChild() && iFd != -1) {
        if (takeOverRing() != 0)
            return -1;
        if (bPassedOn && iFd != -1)
            return writeBehind(pszLine, ulLength);
    }
    if (iFd == -1 && reopenFile() != 0)
        return -1;
    return selectAndWriteFile(pszLine, ulLength);
}

// Into a file that the ring has left: it must not pass for the newest, or the next start would empty the one
// behind it.
int ZebuLogFile::writeBehind(const char* pszLine, unsigned long ulLength)
{
    struct stat info;
    if (fstat(iFd, &info) != 0)
        return ZEBU_Fail(ZEBU_EPOS_WRITE, errno);
    const int iResult = selectAndWriteFile(pszLine, ulLength);
    const timespec aTimes[2] = {{0, UTIME_OMIT}, info.st_mtim};
    (void)futimens(iFd, aTimes);
    return iResult;
}

int ZebuLogFile::selectAndWriteFile(const char* pszLine, unsigned long ulLength)
{
    if (ulCurFileSize > ulFileSizeMax && moveOn() != 0)
        return -1;
    return writeWhole(pszLine, ulLength);
}

// The lock on the next file is taken before that on the full one is given up: at no moment is the ring
// nobody's.
int ZebuLogFile::moveOn()
{
    if (isChild())
        return ZEBU_Fail(ZEBU_EPOS_LOCK, EAGAIN);
    forgetForeign();
    (void)putSyslogMessage(static_cast<int>(lCurFileNo));
    if (iFd == -1) // and the lock was lost with it
        return openFile();

    lCurFileNo = lCurFileNo % lFileNum + 1;
    bKeepContents = false;
    char szName[ZEBU_PATH_ROOM];
    ZEBUFd next;
    if (generateTraceFileName(szName, lCurFileNo) == 0 && isOpenUnder(szName)) { // a ring of one file
        *next.out() = iFd;
        iFd = -1;
        return openTraceFile(next, true);
    }
    const int iFailure = openLocked(next);
    const int iErrno = errno;
    (void)closeFile();
    if (iFailure == ZEBU_EPOS_OPEN && fs_isOutOfDescriptors(iErrno))
        return reopenFile();
    return iFailure == 0 ? openTraceFile(next, true) : ZEBU_Fail(iFailure, iErrno);
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
    forgetForeign();
    constexpr int iSynchronous = 0x1000; // O_DSYNC
    const int iFlags = fcntl(iFd, F_GETFL);
    if (iFlags == -1 || fcntl(iFd, F_SETFL, iFlags | iSynchronous) != 0 || fcntl(iFd, F_SETFL, iFlags) != 0)
        return ZEBU_Fail(ZEBU_EPOS_FLUSH, errno);
    return 0;
}

// ---- The ring as a whole -------------------------------------------------------------------------

int ZebuLogFile::backupToFile(const char* pszDestination, int)
{
    if (ZEBU_CheckFilePath(pszDestination) != 0)
        return -1;
    if (!pszFilePrefix)
        return 0;
    forgetForeign();
    if (iFd == -1)
        return ZEBU_Fail(ZEBU_EPOS_NOTREADY, 0);
    ZEBUFd backup;
    if (ZEBU_OpenBackup(backup.out(), pszDestination, O_WRONLY | O_CREAT | O_TRUNC, iFileAttr, pszFilePrefix,
                        lFileNum, {iFd, -1}) != 0)
        return -1;
    for (long k = 1; k <= lFileNum; ++k) {
        if (copyTraceFile((lCurFileNo + k - 1) % lFileNum + 1, backup.get()) != 0)
            return -1;
    }
    if (close(backup.release()) != 0)
        return ZEBU_Fail(ZEBU_EPOS_CLOSE, errno);
    return 0;
}

// The file that is locked is read through its own descriptor: closing another one would give the lock up.
int ZebuLogFile::copyTraceFile(long lNumber, int iBackup) const
{
    char szName[ZEBU_PATH_ROOM];
    struct stat info;
    if (generateTraceFileName(szName, lNumber) != 0)
        return -1;
    if (stat(szName, &info) != 0)
        return ZEBU_IsOutOfReach(errno) ? 0 : ZEBU_Fail(ZEBU_EPOS_OPEN, errno);
    ZEBUFd fd;
    const bool bOwn = isOurs(info);
    const int iOpened = bOwn ? 1 : ZEBU_OpenForCopy(fd.out(), szName, iBackup);
    if (iOpened != 1)
        return iOpened;
    if (!S_ISREG(info.st_mode)) // a device may have no end
        return 0;
    const int iFrom = bOwn ? iFd : fd.get();
    return ZEBU_CopyFile(iFrom, iBackup, ZEBU_CopyLimit(iFrom, ulFileSizeMax));
}

int ZebuLogFile::chFileAttr(int iMode)
{
    return pszFilePrefix ? ZEBU_ChmodRing(pszFilePrefix, lFileNum, iMode, iFd) : 0;
}
