// cleanup/LogCleanupUnix.cpp -- directory scan, order of the files, test for locks.
#include "cleanup/LogCleanupUnix.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/Fd.h"
#include "frame/TrustedOpen.h"

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
    ZEBUFd fd(ZEBU_Lift(::open(szPath, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK)));
    if (fd.get() == -1)
        return -1;
    pDirectory = fdopendir(fd.get());
    if (!pDirectory)
        return -1;
    (void)fd.release();
    return 0;
}

int ZEBUFileScan::next()
{
    while (const dirent* pEntry = readdir(pDirectory)) {
        appendName(pEntry->d_name);
        struct stat info;
        if (stat(szPath, &info) != 0)
            return -1;
        if (S_ISDIR(info.st_mode) || fnmatch(pszPattern, szPath, 0) != 0)
            continue;
        lMtime = info.st_mtim.tv_sec;
        return 1;
    }
    return 0;
}

// Puts a name behind the directory. Cuts a path that no call takes either way.
void ZEBUFileScan::appendName(const char* pszName)
{
    const size_t uLength = strnlen(pszName, sizeof szPath - 1 - uDirectory);
    memcpy(szPath + uDirectory, pszName, uLength);
    szPath[uDirectory + uLength] = '\0';
}

// ---- The files of the rule by number -------------------------------------------------------------

ZEBUFindFileList::~ZEBUFindFileList()
{
    while (ZEBUFindFileElement* pElement = pHead) {
        pHead = pElement->pNext;
        free(pElement);
    }
}

bool ZEBUFindFileList::addElement(const char* pszPath, long lMtime)
{
    const size_t uLength = strlen(pszPath) + 1;
    auto* pElement = static_cast<ZEBUFindFileElement*>(malloc(sizeof(ZEBUFindFileElement) + uLength));
    if (!pElement)
        return false;
    pElement->lMtime = lMtime;
    memcpy(pElement + 1, pszPath, uLength);
    pElement->pNext = pHead;
    pHead = pElement;
    ++iCount;
    return true;
}

// Whether `lLeft` is later than `lRight`, by the low 32 bits of the two.
static bool fs_isLater(long lLeft, long lRight)
{
    return static_cast<int>(static_cast<unsigned int>(lLeft) - static_cast<unsigned int>(lRight)) > 0;
}

// Merges two sorted lists; of equal times the elements of `pFront` come first.
static ZEBUFindFileElement* fs_merge(ZEBUFindFileElement* pFront, ZEBUFindFileElement* pBack)
{
    ZEBUFindFileElement* pMerged = nullptr;
    ZEBUFindFileElement** ppEnd = &pMerged;
    while (pFront && pBack) {
        ZEBUFindFileElement*& pTaken = fs_isLater(pBack->lMtime, pFront->lMtime) ? pBack : pFront;
        *ppEnd = pTaken;
        ppEnd = &pTaken->pNext;
        pTaken = pTaken->pNext;
    }
    *ppEnd = pFront ? pFront : pBack;
    return pMerged;
}

// By merging, whatever order the times are in: a directory may hold tens of thousands of files.
void ZEBUFindFileList::sort()
{
    ZEBUFindFileElement* aSorted[32] =
        {}; // list i is empty or has 2^i elements, which stood before those of i - 1
    while (ZEBUFindFileElement* pList = pHead) {
        pHead = pList->pNext;
        pList->pNext = nullptr;
        int i = 0;
        for (; aSorted[i]; ++i) {
            pList = fs_merge(aSorted[i], pList);
            aSorted[i] = nullptr;
        }
        aSorted[i] = pList;
    }
    for (ZEBUFindFileElement* pList : aSorted)
        pHead = fs_merge(pList, pHead);
}

// ---- One file ------------------------------------------------------------------------------------

bool ZEBU_IsRemovable(const char* pszPath)
{
    bool bMade;
    // Never waits: what matches may be a FIFO or a device.
    const ZEBUFd fd(ZEBU_OpenTrusted(pszPath, O_RDWR | O_NONBLOCK, &bMade));
    return fd.get() != -1 && lockf(fd.get(), F_TEST, 0) == 0;
}
