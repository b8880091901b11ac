// frame/TrustedOpen.cpp -- following symbolic links by hand, each only when it can be trusted.
#include "frame/TrustedOpen.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "frame/Fd.h"

bool ZEBU_IsAbsent(int iErrno)
{
    return iErrno == ENOENT || iErrno == ENOTDIR || iErrno == ELOOP || iErrno == ENAMETOOLONG;
}

bool ZEBU_IsOutOfReach(int iErrno)
{
    return ZEBU_IsAbsent(iErrno) || iErrno == EACCES || iErrno == EPERM;
}

// ---- Links ---------------------------------------------------------------------------------------

// The links of /proc stand for open files; their text is no path. Nobody can plant one.
static bool fs_isOfProcesses(int iLink)
{
    struct statfs info;
    return fstatfs(iLink, &info) == 0 && info.f_type == PROC_SUPER_MAGIC;
}

// Replaces `szName` by what the symbolic link of that name points to, or sets `*pbFollow` where the kernel
// has to follow it. The link is held by a descriptor while its owner is checked and its text is read, so
// nobody can put another one in its place between. Returns 0, or -1 with errno.
static int fs_followTrustedLink(int iDirectory, char (&szName)[ZEBU_PATH_ROOM], bool* pbFollow)
{
    const ZEBUFd link(ZEBU_Lift(openat(iDirectory, szName, O_PATH | O_NOFOLLOW | O_CLOEXEC)));
    struct stat info;
    if (link.get() == -1 || fstat(link.get(), &info) != 0)
        return -1;
    if (!S_ISLNK(info.st_mode)) // replaced by a file meanwhile: open it under its own name
        return 0;
    if (info.st_uid != 0 && info.st_uid != geteuid()) {
        errno = ELOOP;
        return -1;
    }
    *pbFollow = fs_isOfProcesses(link.get());
    if (*pbFollow)
        return 0;
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
// ELOOP then), and again on what the link points to as long as root or the caller made it. The operation is
// told whether it may let the kernel follow.
template <class Operation>
static int fs_onTrusted(int iDirectory, const char* pszName, Operation operation)
{
    int iResult = operation(pszName, false);
    if (iResult != -1 || errno != ELOOP)
        return iResult;

    char szName[ZEBU_PATH_ROOM];
    if (strlen(pszName) >= sizeof szName)
        return -1;
    strcpy(szName, pszName);
    for (int iLinks = 0; iResult == -1 && errno == ELOOP && iLinks < 8; ++iLinks) {
        bool bFollow = false;
        if (fs_followTrustedLink(iDirectory, szName, &bFollow) != 0)
            return -1;
        iResult = operation(szName, bFollow);
    }
    return iResult;
}

// ---- Opening -------------------------------------------------------------------------------------

// As open(2) with a note whether the file was made. Told by the calls that open it, not by a look before
// them: a file that only could not be looked at is not a new one.
static int fs_openOrMake(int iDirectory, const char* pszName, int iFlags, bool* pbMade)
{
    int iFd = openat(iDirectory, pszName, iFlags & ~O_CREAT);
    if (iFd != -1 || errno != ENOENT || (iFlags & O_CREAT) == 0)
        return iFd;
    iFd = openat(iDirectory, pszName, iFlags | O_EXCL, 0666);
    *pbMade = iFd != -1;
    if (iFd == -1 && errno == EEXIST) // another process was faster
        iFd = openat(iDirectory, pszName, iFlags & ~O_CREAT);
    return iFd;
}

int ZEBU_OpenTrusted(const char* pszName, int iFlags, bool* pbMade, int iDirectory)
{
    *pbMade = false;
    iFlags |= O_CLOEXEC | O_NOCTTY;
    return ZEBU_Lift(fs_onTrusted(iDirectory, pszName, [=](const char* psz, bool bFollow) {
        return fs_openOrMake(iDirectory, psz, bFollow ? iFlags : iFlags | O_NOFOLLOW, pbMade);
    }));
}

// With O_PATH a link itself is opened, and O_DIRECTORY would call it a file of another kind.
static int fs_openDirectory(const char* pszName, int iNoFollow)
{
    ZEBUFd fd(ZEBU_Lift(open(pszName, O_PATH | O_CLOEXEC | iNoFollow)));
    struct stat info;
    if (fd.get() == -1 || fstat(fd.get(), &info) != 0)
        return -1;
    if (S_ISDIR(info.st_mode))
        return fd.release();
    errno = S_ISLNK(info.st_mode) ? ELOOP : ENOTDIR;
    return -1;
}

int ZEBU_OpenDirectory(const char* pszName)
{
    return fs_onTrusted(AT_FDCWD, pszName, [](const char* psz, bool bFollow) {
        return fs_openDirectory(psz, bFollow ? 0 : O_NOFOLLOW);
    });
}

int ZEBU_OpenToRead(const char* pszName)
{
    bool bMade;
    ZEBUFd fd(ZEBU_OpenTrusted(pszName, O_RDONLY | O_NONBLOCK, &bMade)); // a FIFO has no writer
    struct stat info;
    if (fd.get() == -1 || fstat(fd.get(), &info) != 0)
        return -1;
    if (S_ISREG(info.st_mode))
        return fd.release();
    errno = ENOENT; // a device may have no end
    return -1;
}

// ---- Modes ---------------------------------------------------------------------------------------

// Without the help of the kernel or of /proc: through a descriptor. Closing one that reads would drop the
// locks on the file, so not on the file that `iOpen` shows.
static int fs_chmodOpened(const char* pszName, int iMode, int iOpen)
{
    struct stat info, held;
    const ZEBUFd name(ZEBU_Lift(open(pszName, O_PATH | O_NOFOLLOW | O_CLOEXEC)));
    if (name.get() == -1 || fstat(name.get(), &info) != 0)
        return -1;
    if (S_ISLNK(info.st_mode)) {
        errno = ELOOP;
        return -1;
    }
    if (iOpen != -1 && fstat(iOpen, &held) == 0 && held.st_dev == info.st_dev && held.st_ino == info.st_ino)
        return fchmod(iOpen, static_cast<mode_t>(iMode));
    const ZEBUFd fd(ZEBU_Lift(open(pszName, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)));
    return fd.get() == -1 ? -1 : fchmod(fd.get(), static_cast<mode_t>(iMode));
}

int ZEBU_ChmodNoFollow(const char* pszName, int iMode, int iOpen)
{
    // The descriptor that this takes inside libc is of the kind whose closing leaves the locks on the file.
    const int iResult = fchmodat(AT_FDCWD, pszName, static_cast<mode_t>(iMode), AT_SYMLINK_NOFOLLOW);
    const bool bHelpless = iResult != 0 && errno == EOPNOTSUPP; // a link, or no /proc
    return bHelpless ? fs_chmodOpened(pszName, iMode, iOpen) : iResult;
}

int ZEBU_ChmodTrusted(const char* pszName, int iMode, int iOpen)
{
    return fs_onTrusted(AT_FDCWD, pszName, [=](const char* psz, bool bFollow) {
        return bFollow ? chmod(psz, static_cast<mode_t>(iMode)) : ZEBU_ChmodNoFollow(psz, iMode, iOpen);
    });
}
