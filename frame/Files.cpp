// frame/Files.cpp -- opens that trust nobody, directories, locks, and whole reads and writes.
#include "frame/Files.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/ErrPos.h"
#include "frame/Fd.h"

bool ZEBU_IsAbsent(int iErrno)
{
    return iErrno == ENOENT || iErrno == ENOTDIR || iErrno == ELOOP || iErrno == ENAMETOOLONG;
}

// ---- Opening -------------------------------------------------------------------------------------

// Replaces `szName` by what the symbolic link of that name points to. The link is held by a descriptor
// while its owner is checked and its text is read, so nobody can put another one in its place between.
// Returns 0, or -1 with errno.
static int fs_followTrustedLink(char (&szName)[ZEBU_PATH_ROOM])
{
    const ZEBUFd link(open(szName, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat info;
    if (link.get() == -1 || fstat(link.get(), &info) != 0)
        return -1;
    if (!S_ISLNK(info.st_mode)) // replaced by a file meanwhile: open it under its own name
        return 0;
    if (info.st_uid != 0 && info.st_uid != geteuid()) {
        errno = ELOOP;
        return -1;
    }
    char szTarget[ZEBU_PATH_ROOM];
    const ssize_t lLength = readlinkat(link.get(), "", szTarget, sizeof szTarget - 1);
    if (lLength < 0)
        return -1;
    szTarget[lLength] = '\0';

    // A relative target starts at the directory of the link.
    char* pszSlash = strrchr(szName, '/');
    char* pszFrom = szTarget[0] == '/' || !pszSlash ? szName : pszSlash + 1;
    if (static_cast<size_t>(pszFrom - szName) + static_cast<size_t>(lLength) >= sizeof szName) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(pszFrom, szTarget, static_cast<size_t>(lLength) + 1);
    return 0;
}

// Runs `operation` on a file whose last component it must not follow when it is a link (it gives -1 with
// `iIsLink` then), and again on what the link points to as long as root or the caller made it.
template <class Operation>
static int fs_onTrusted(const char* pszName, int iIsLink, Operation operation)
{
    int iResult = operation(pszName);
    if (iResult != -1 || errno != iIsLink)
        return iResult;

    char szName[ZEBU_PATH_ROOM];
    if (strlen(pszName) >= sizeof szName)
        return -1;
    strcpy(szName, pszName);
    for (int iLinks = 0; iResult == -1 && errno == iIsLink && iLinks < 8; ++iLinks) {
        if (fs_followTrustedLink(szName) != 0)
            return -1;
        iResult = operation(szName);
    }
    return iResult;
}

// As open(2) with a note whether the file was made. Told by the calls that open it, not by a look before
// them: a file that only could not be looked at is not a new one.
static int fs_openOrMake(const char* pszName, int iFlags, bool* pbMade)
{
    int iFd = open(pszName, iFlags & ~O_CREAT);
    if (iFd != -1 || errno != ENOENT || (iFlags & O_CREAT) == 0)
        return iFd;
    iFd = open(pszName, iFlags | O_EXCL, 0666);
    *pbMade = iFd != -1;
    if (iFd == -1 && errno == EEXIST) // another process was faster
        iFd = open(pszName, iFlags & ~O_CREAT);
    return iFd;
}

// Without following a symbolic link that somebody else made, and without waiting for the other end of a
// FIFO.
static int fs_openTrusted(const char* pszName, int iFlags, bool* pbMade)
{
    iFlags |= O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
    return fs_onTrusted(pszName, ELOOP, [=](const char* psz) { return fs_openOrMake(psz, iFlags, pbMade); });
}

int ZEBU_OpenToRead(const char* pszName)
{
    bool bMade;
    ZEBUFd fd(fs_openTrusted(pszName, O_RDONLY, &bMade));
    struct stat info;
    if (fd.get() == -1 || fstat(fd.get(), &info) != 0)
        return -1;
    if (S_ISREG(info.st_mode))
        return fd.release();
    errno = ENOENT; // a device may have no end
    return -1;
}

int ZEBU_OpenFile(int* piFd, const char* pszName, int iFlags, int iFileAttr)
{
    bool bMade = false;
    *piFd = fs_openTrusted(pszName, iFlags, &bMade);
    if (*piFd == -1)
        return ZEBU_Fail(ZEBU_EPOS_OPEN, errno);
    if (iFileAttr != -1)
        (void)fchmod(*piFd, static_cast<mode_t>(iFileAttr));
    else if (bMade)
        (void)fchmod(*piFd, 0666);
    return 0;
}

// The descriptor that this takes inside libc is of the kind whose closing leaves the locks on the file.
static int fs_chmodNoFollow(const char* pszName, int iMode)
{
    return fchmodat(AT_FDCWD, pszName, static_cast<mode_t>(iMode), AT_SYMLINK_NOFOLLOW);
}

int ZEBU_ChmodTrusted(const char* pszName, int iMode)
{
    return fs_onTrusted(pszName, EOPNOTSUPP, [=](const char* psz) { return fs_chmodNoFollow(psz, iMode); });
}

// ---- Directories ---------------------------------------------------------------------------------

int ZEBU_MakeDirectory(const char* pszDirectory)
{
    if (mkdir(pszDirectory, 0777) == 0) {
        (void)fs_chmodNoFollow(pszDirectory, 0777);
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

int ZEBU_CopyFile(int iFrom, int iTo, unsigned long ulLimit)
{
    char szBlock[1024];
    while (ulLimit > 0) {
        const long lRead = ZEBU_Read(iFrom, szBlock, ulLimit < sizeof szBlock ? ulLimit : sizeof szBlock);
        if (lRead <= 0)
            break;
        if (ZEBU_WriteAll(iTo, szBlock, static_cast<size_t>(lRead)) != 0)
            return -1;
        ulLimit -= static_cast<unsigned long>(lRead);
    }
    return 0;
}

int ZEBU_ReserveBlocks(int iFd, long lLength)
{
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
