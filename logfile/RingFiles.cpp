// logfile/RingFiles.cpp -- the names of a ring's files, and the ring as a whole.
#include "logfile/RingFiles.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/ErrPos.h"
#include "frame/Fd.h"
#include "output/LineFormat.h"

int ZEBU_TraceFileName(char (&szName)[ZEBU_PATH_ROOM], const char* pszPrefix, long lNumber, long lCount)
{
    if (!pszPrefix || lNumber < 1 || lNumber > lCount)
        return ZEBU_Fail(ZEBU_EPOS_PARAM, 0);
    const int iLength = snprintf(szName, sizeof szName, "%s%d.log", pszPrefix, static_cast<int>(lNumber));
    if (iLength < 0 || static_cast<size_t>(iLength) >= sizeof szName)
        return ZEBU_Fail(ZEBU_EPOS_PARAM, 0);
    return 0;
}

long ZEBU_NewestTraceFile(const char* pszPrefix, long lCount, long* plSize)
{
    long lNewest = 0;
    time_t lNewestTime = 0;
    for (long n = 1; n <= lCount; ++n) {
        char szName[ZEBU_PATH_ROOM];
        struct stat info;
        if (ZEBU_TraceFileName(szName, pszPrefix, n, lCount) != 0)
            return -1;
        if (stat(szName, &info) != 0) {
            // One that cannot be looked at may be the newest: passing over it, the ring would go on in the
            // wrong place and empty it.
            if (ZEBU_IsAbsent(errno))
                continue;
            return ZEBU_Fail(ZEBU_EPOS_OPEN, errno);
        }
        if (lNewest == 0 || info.st_mtime >= lNewestTime) {
            lNewest = n;
            lNewestTime = info.st_mtime;
            *plSize = info.st_size;
        }
    }
    return lNewest;
}

int ZEBU_ChmodRing(const char* pszPrefix, long lCount, int iMode, int iOpen)
{
    for (long n = 1; n <= lCount; ++n) {
        char szName[ZEBU_PATH_ROOM];
        struct stat info;
        if (ZEBU_TraceFileName(szName, pszPrefix, n, lCount) != 0)
            return -1;
        if (stat(szName, &info) == 0 && ZEBU_ChmodTrusted(szName, iMode, iOpen) != 0 && errno != ENOENT)
            return ZEBU_Fail(ZEBU_EPOS_CHMOD, errno);
    }
    return 0;
}

// ---- Backup --------------------------------------------------------------------------------------

static bool fs_isSame(const struct stat& left, const struct stat& right)
{
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

static int fs_refuseOwn(const struct stat& backup, const char* pszPrefix, long lCount, const int (&aOwn)[2])
{
    struct stat info;
    for (const int iOwn : aOwn) {
        if (iOwn != -1 && fstat(iOwn, &info) == 0 && fs_isSame(info, backup))
            return ZEBU_Fail(ZEBU_EPOS_PARAM, 0);
    }
    for (long n = 1; n <= lCount; ++n) {
        char szName[ZEBU_PATH_ROOM];
        if (ZEBU_TraceFileName(szName, pszPrefix, n, lCount) != 0)
            return -1;
        if (stat(szName, &info) == 0 && fs_isSame(info, backup))
            return ZEBU_Fail(ZEBU_EPOS_PARAM, 0);
    }
    return 0;
}

// Compared before it is opened, since closing a file of the ring could drop the lock on it, and again when it
// is open and nobody can put another one in its place any more.
int ZEBU_OpenBackup(int* piFd, const char* pszName, int iFlags, int iFileAttr, const char* pszPrefix,
                    long lCount, const int (&aOwn)[2])
{
    struct stat info;
    if (stat(pszName, &info) == 0 && fs_refuseOwn(info, pszPrefix, lCount, aOwn) != 0)
        return -1;
    bool bMade;
    ZEBUFd fd(ZEBU_OpenTrusted(pszName, iFlags & ~O_TRUNC, &bMade));
    if (fd.get() == -1 || fstat(fd.get(), &info) != 0)
        return ZEBU_Fail(ZEBU_EPOS_OPEN, errno);
    if (fs_refuseOwn(info, pszPrefix, lCount, aOwn) != 0)
        return -1;
    if (S_ISREG(info.st_mode) && ftruncate(fd.get(), 0) != 0)
        return ZEBU_Fail(ZEBU_EPOS_OPEN, errno);
    if (iFileAttr != -1 || bMade)
        (void)fchmod(fd.get(), iFileAttr != -1 ? static_cast<mode_t>(iFileAttr) : 0666);
    *piFd = fd.release();
    return 0;
}

int ZEBU_OpenForCopy(int* piFd, const char* pszName, int iBackup)
{
    struct stat from, to;
    ZEBUFd fd(ZEBU_OpenToRead(pszName));
    if (fd.get() == -1)
        return ZEBU_IsAbsent(errno) || errno == EACCES || errno == EPERM ? 0
                                                                         : ZEBU_Fail(ZEBU_EPOS_OPEN, errno);
    if (fstat(fd.get(), &from) != 0 || fstat(iBackup, &to) != 0)
        return ZEBU_Fail(ZEBU_EPOS_OPEN, errno);
    if (fs_isSame(from, to))
        return ZEBU_Fail(ZEBU_EPOS_PARAM, 0);
    *piFd = fd.release();
    return 1;
}

unsigned long ZEBU_CopyLimit(int iFd, unsigned long ulFileSize)
{
    struct stat info;
    const unsigned long ulDescribed = ulFileSize + ZEBU_FILE_HEADER_MAX + ZEBU_LINE_MAX;
    const unsigned long ulBlocks =
        fstat(iFd, &info) == 0 ? static_cast<unsigned long>(info.st_blocks) * 512 : 0;
    return ulBlocks > ulDescribed ? ulBlocks : ulDescribed;
}
