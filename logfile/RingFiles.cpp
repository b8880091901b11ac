// logfile/RingFiles.cpp -- the names of a ring's files, and the ring as a whole.
#include "logfile/RingFiles.h"

#include <errno.h>
#include <stdio.h>
#include <sys/stat.h>

#include "frame/ErrPos.h"

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
            return ZEBU_Fail(ZEBU_EPOS_STAT, errno);
        }
        if (lNewest == 0 || info.st_mtime >= lNewestTime) {
            lNewest = n;
            lNewestTime = info.st_mtime;
            *plSize = info.st_size;
        }
    }
    return lNewest;
}

int ZEBU_ChmodRing(const char* pszPrefix, long lCount, int iMode)
{
    for (long n = 1; n <= lCount; ++n) {
        char szName[ZEBU_PATH_ROOM];
        if (ZEBU_TraceFileName(szName, pszPrefix, n, lCount) != 0)
            return -1;
        if (ZEBU_ChmodTrusted(szName, iMode) != 0 && errno != ENOENT)
            return ZEBU_Fail(ZEBU_EPOS_CHMOD, errno);
    }
    return 0;
}

int ZEBU_RefuseRingFile(const char* pszPath, const char* pszPrefix, long lCount)
{
    struct stat target;
    if (stat(pszPath, &target) != 0)
        return 0;
    for (long n = 1; n <= lCount; ++n) {
        char szName[ZEBU_PATH_ROOM];
        struct stat info;
        if (ZEBU_TraceFileName(szName, pszPrefix, n, lCount) != 0)
            return -1;
        if (stat(szName, &info) == 0 && info.st_dev == target.st_dev && info.st_ino == target.st_ino)
            return ZEBU_Fail(ZEBU_EPOS_PARAM, 0);
    }
    return 0;
}
