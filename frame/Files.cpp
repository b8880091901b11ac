// frame/Files.cpp -- opening, directories, locks, and whole reads and writes.
#include "frame/Files.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include "frame/ErrPos.h"
#include "frame/Fd.h"

int ZEBU_TryOpenFile(int* piFd, const char* pszName, int iFlags, int iFileAttr, int iDirectory)
{
    bool bMade;
    ZEBUFd fd(ZEBU_OpenTrusted(pszName, iFlags | O_NONBLOCK, &bMade, iDirectory));
    struct stat info;
    *piFd = -1;
    if (fd.get() == -1 || fstat(fd.get(), &info) != 0)
        return -1;
    if (!S_ISREG(info.st_mode) && info.st_uid != 0 && info.st_uid != geteuid()) {
        errno = EACCES;
        return -1;
    }
    if (iFileAttr != -1)
        (void)fchmod(fd.get(), static_cast<mode_t>(iFileAttr));
    else if (bMade)
        (void)fchmod(fd.get(), 0666);
    *piFd = fd.release();
    return 0;
}

int ZEBU_OpenFile(int* piFd, const char* pszName, int iFlags, int iFileAttr, int iDirectory)
{
    const int iResult = ZEBU_TryOpenFile(piFd, pszName, iFlags, iFileAttr, iDirectory);
    return iResult == 0 ? 0 : ZEBU_Fail(ZEBU_EPOS_OPEN, errno);
}

// ---- Directories ---------------------------------------------------------------------------------

int ZEBU_MakeDirectory(const char* pszDirectory)
{
    if (mkdir(pszDirectory, 0777) == 0) {
        (void)ZEBU_ChmodNoFollow(pszDirectory, 0777);
        return 0;
    }
    const int iErrno = errno;
    struct stat info; // another process may have made it meanwhile
    if (stat(pszDirectory, &info) == 0 && S_ISDIR(info.st_mode))
        return 0;
    return ZEBU_Fail(ZEBU_EPOS_MKDIR, iErrno);
}

int ZEBU_MakeDirectories(const char* pszDirectory)
{
    char szPath[ZEBU_PATH_ROOM];
    const size_t uLength = strlen(pszDirectory);
    if (uLength == 0 || uLength >= sizeof szPath)
        return ZEBU_Fail(ZEBU_EPOS_MKDIR, uLength == 0 ? ENOENT : ENAMETOOLONG);
    memcpy(szPath, pszDirectory, uLength + 1);

    // Up to the deepest level that exists, cutting the path at its slashes ...
    struct stat info;
    for (char* pCut = szPath + uLength; stat(szPath, &info) != 0; *pCut = '\0') {
        do
            --pCut;
        while (pCut > szPath && *pCut != '/');
        if (pCut <= szPath)
            break;
    }

    // ... and down again, making each missing level.
    for (;;) {
        if (stat(szPath, &info) != 0) {
            if (ZEBU_MakeDirectory(szPath) != 0)
                return -1;
        } else if (!S_ISDIR(info.st_mode)) {
            return ZEBU_Fail(ZEBU_EPOS_NOTDIR, 0);
        }
        char* pEnd = szPath + strlen(szPath);
        if (pEnd == szPath + uLength)
            return 0;
        *pEnd = '/';
    }
}

int ZEBU_CheckFilePath(const char* pszPath)
{
    if (!pszPath)
        return ZEBU_Fail(ZEBU_EPOS_PARAM, 0);
    const char* pszSlash = strrchr(pszPath, '/');
    if (!pszSlash || pszSlash == pszPath)
        return 0;
    char szDirectory[ZEBU_PATH_ROOM];
    const auto uLength = static_cast<size_t>(pszSlash - pszPath);
    if (uLength >= sizeof szDirectory)
        return ZEBU_Fail(ZEBU_EPOS_MKDIR, ENAMETOOLONG);
    memcpy(szDirectory, pszPath, uLength);
    szDirectory[uLength] = '\0';
    return ZEBU_MakeDirectories(szDirectory);
}

// ---- Locks ---------------------------------------------------------------------------------------

void ZEBU_DropLocks(int iFd)
{
    (void)close(fcntl(iFd, F_DUPFD_CLOEXEC, 3));
}

void ZEBU_Unlock(int iFd)
{
    if (lockf(iFd, F_ULOCK, 0) != 0)
        ZEBU_DropLocks(iFd);
}

// ---- Bytes ---------------------------------------------------------------------------------------

int ZEBU_WriteAll(int iFd, const char* pBytes, size_t uLength)
{
    while (uLength > 0) {
        const ssize_t lWritten = write(iFd, pBytes, uLength);
        if (lWritten < 0 && errno == EINTR)
            continue;
        if (lWritten < 0)
            return ZEBU_Fail(ZEBU_EPOS_WRITE, errno);
        if (static_cast<size_t>(lWritten) < uLength)
            return ZEBU_Fail(ZEBU_EPOS_WRITE, ENOSPC);
        uLength -= static_cast<size_t>(lWritten);
        pBytes += lWritten;
    }
    return 0;
}

long ZEBU_Read(int iFd, char* pBytes, size_t uRoom)
{
    ssize_t lRead;
    do
        lRead = read(iFd, pBytes, uRoom);
    while (lRead < 0 && errno == EINTR);
    return lRead;
}

// A file that grows beyond the limit of the process ends the process, by SIGXFSZ. Where the length is known
// before, that is a failure instead.
static int fs_checkLimit(long lLength)
{
    rlimit limit;
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && static_cast<rlim_t>(lLength) > limit.rlim_cur)
        return ZEBU_Fail(ZEBU_EPOS_WRITE, EFBIG);
    return 0;
}

// Many pieces with each call, up to a multiple of their length: what is written in large parts the kernel
// also keeps and maps in large ones, and the lines that are stored there later fault less often.
int ZEBU_FillFile(int iFd, char cFill, long lFrom, long lTo)
{
    constexpr long lPiece = 1024, lPieces = 64;
    char szFill[lPiece];
    memset(szFill, cFill, sizeof szFill);
    if (lFrom < lTo && fs_checkLimit(lTo) != 0)
        return -1;
    while (lFrom < lTo) {
        const long lMultiple = (lFrom / (lPiece * lPieces) + 1) * lPiece * lPieces;
        const long lEnd = lMultiple < lTo ? lMultiple : lTo;
        iovec pieces[lPieces];
        int iPieces = 0;
        for (long l = lFrom; l < lEnd; l += lPiece)
            pieces[iPieces++] = {szFill, static_cast<size_t>(lEnd - l < lPiece ? lEnd - l : lPiece)};
        const ssize_t lWritten = writev(iFd, pieces, iPieces);
        if (lWritten < 0 && errno == EINTR)
            continue;
        if (lWritten != lEnd - lFrom)
            return ZEBU_Fail(ZEBU_EPOS_WRITE, lWritten < 0 ? errno : ENOSPC);
        lFrom = lEnd;
    }
    return 0;
}

static ssize_t fs_readAt(int iFd, char* pBytes, size_t uRoom, unsigned long ulOffset)
{
    ssize_t lRead;
    do
        lRead = pread(iFd, pBytes, uRoom, static_cast<off_t>(ulOffset));
    while (lRead < 0 && errno == EINTR);
    return lRead;
}

int ZEBU_CopyFile(int iFrom, int iTo, unsigned long ulLimit)
{
    char szBlock[1024];
    for (unsigned long ulDone = 0; ulDone < ulLimit;) {
        const unsigned long ulLeft = ulLimit - ulDone;
        const ssize_t lRead =
            fs_readAt(iFrom, szBlock, ulLeft < sizeof szBlock ? ulLeft : sizeof szBlock, ulDone);
        if (lRead <= 0)
            break;
        if (ZEBU_WriteAll(iTo, szBlock, static_cast<size_t>(lRead)) != 0)
            return -1;
        ulDone += static_cast<unsigned long>(lRead);
    }
    return 0;
}

int ZEBU_ReserveBlocks(int iFd, long lLength)
{
    struct stat info;
    if (fstat(iFd, &info) == 0 && info.st_size < lLength && fs_checkLimit(lLength) != 0)
        return -1;
    int iResult;
    do
        iResult = fallocate(iFd, 0, 0, lLength);
    while (iResult != 0 && errno == EINTR);
    if (iResult == 0)
        return 0;
    const int iErrno = errno;
    const bool bNoRoom = iErrno == ENOSPC || iErrno == EDQUOT || iErrno == EFBIG || iErrno == EIO;
    return bNoRoom ? ZEBU_Fail(ZEBU_EPOS_WRITE, iErrno) : 1;
}
