// cleanup/LogCleanupUnix.cpp -- directory scan and removal of one file.
#include "cleanup/LogCleanupUnix.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/ErrPos.h"
#include "frame/Fd.h"

ZEBUFileScan::ZEBUFileScan(const char* pszPath_) : pszPattern(pszPath_), pDirectory(nullptr), lMtime(0)
{
    const char* pszSlash = strrchr(pszPattern, '/');
    const char* pszDirectory = pszSlash ? pszPattern : "./";
    uDirectory = pszSlash ? static_cast<size_t>(pszSlash + 1 - pszPattern) : 2;
    memcpy(szPath, pszDirectory, uDirectory);
    szPath[uDirectory] = '\0';
}

ZEBUFileScan::~ZEBUFileScan()
{
    if (pDirectory)
        (void)closedir(pDirectory);
}

int ZEBUFileScan::open()
{
    pDirectory = opendir(szPath);
    if (!pDirectory)
        return ZEBU_Fail(ZEBU_EPOS_OPENDIR, errno);
    return 0;
}

int ZEBUFileScan::next()
{
    while (const dirent* pEntry = readdir(pDirectory)) {
        if (!appendName(pEntry->d_name))
            continue;
        struct stat info;
        if (stat(szPath, &info) != 0)
            return ZEBU_Fail(ZEBU_EPOS_STAT, errno);
        if (S_ISDIR(info.st_mode) || fnmatch(pszPattern, szPath, 0) != 0)
            continue;
        lMtime = info.st_mtim.tv_sec;
        return 1;
    }
    return 0;
}

// Puts a name behind the directory. Returns false when no call would take the path.
bool ZEBUFileScan::appendName(const char* pszName)
{
    const size_t uLength = strlen(pszName);
    if (uDirectory + uLength >= PATH_MAX)
        return false;
    memcpy(szPath + uDirectory, pszName, uLength + 1);
    return true;
}

int ZEBU_RemoveUnlockedFile(const char* pszPath)
{
    // Never waits: what matches may be a FIFO or a device.
    const ZEBUFd fd(open(pszPath, O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (fd.get() == -1 || lockf(fd.get(), F_TEST, 0) != 0)
        return 0;
    if (unlink(pszPath) != 0)
        return ZEBU_Fail(ZEBU_EPOS_UNLINK, errno);
    return 0;
}
