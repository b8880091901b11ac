// multilog/ManageFile.cpp -- the management file of a shared ring, and the record in it.
#include "multilog/ManageFile.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

#include "frame/ErrPos.h"
#include "frame/Fd.h"

// ---- The file ------------------------------------------------------------------------------------

int ZEBUManageFile::generateManagementFileName(const char* pszPrefix)
{
    if (!pszPrefix)
        return ZEBU_Fail(ZEBU_EPOS_PARAM, 0);
    const char* pszSlash = strrchr(pszPrefix, '/');
    const char* pszBase = pszSlash ? pszSlash + 1 : pszPrefix;
    const char* pszDir = pszSlash ? pszPrefix : ".";
    const int iDirLength = pszSlash ? static_cast<int>(pszSlash - pszPrefix) : 1;

    const int iDir = snprintf(szManageDir, sizeof szManageDir, "%.*s/mmap", iDirLength, pszDir);
    const int iFile =
        snprintf(szManageFileName, sizeof szManageFileName, "%.*s/mmap/%s.mm", iDirLength, pszDir, pszBase);
    constexpr int iRoom = static_cast<int>(ZEBU_PATH_ROOM);
    return iDir >= iRoom || iFile >= iRoom ? ZEBU_Fail(ZEBU_EPOS_PARAM, 0) : 0;
}

int ZEBUManageFile::open(int iFileAttr)
{
    ulManageIno = 0;
    // Opened from its directory, but looked at by its name before every line.
    if (strlen(szManageFileName) >= PATH_MAX)
        return ZEBU_Fail(ZEBU_EPOS_OPEN, ENAMETOOLONG);
    // A stranger's link in place of the directory would have the file made, or changed, wherever it leads.
    const ZEBUFd directory(ZEBU_OpenDirectory(szManageDir));
    if (directory.get() == -1)
        return ZEBU_Fail(ZEBU_EPOS_OPEN, errno);
    const char* pszBase = strrchr(szManageFileName, '/') + 1;
    return ZEBU_OpenFile(&iManageFd, pszBase, O_RDWR | O_CREAT, iFileAttr, directory.get());
}

int ZEBUManageFile::prepare(long* plLength)
{
    (void)futimens(iManageFd, nullptr);
    struct stat info;
    if (fstat(iManageFd, &info) != 0)
        return ZEBU_Fail(ZEBU_EPOS_STAT, errno);
    ulManageIno = info.st_ino;
    ulManageDev = info.st_dev;
    *plLength = info.st_size;
    return lengthen(info);
}

// A look that fails says nothing about the file, and the mapping lasts without the descriptor.
int ZEBUManageFile::complete()
{
    struct stat info;
    if (fstat(iManageFd, &info) != 0)
        return 0;
    return isSameFile(info) ? lengthen(info) : ZEBU_Fail(ZEBU_EPOS_MISMATCH, 0);
}

bool ZEBUManageFile::isForeign() const
{
    struct stat info;
    return ulManageIno != 0 && fstat(iManageFd, &info) == 0 && !isSameFile(info);
}

bool ZEBUManageFile::isReadable() const
{
    struct stat info;
    return pManageMap != MAP_FAILED && fstat(iManageFd, &info) == 0 && isSameFile(info) &&
           info.st_size >= ZEBU_MANAGE_LENGTH;
}

int ZEBUManageFile::lengthen(const struct stat& info)
{
    static constexpr char cs_szZero[ZEBU_MANAGE_LENGTH] = {};
    // Long enough, and yet without a block of its own: the first store into the mapping would need one.
    if (info.st_size >= ZEBU_MANAGE_LENGTH)
        return info.st_blocks == 0 && ZEBU_ReserveBlocks(iManageFd, ZEBU_MANAGE_LENGTH) == -1 ? -1 : 0;
    if (lseek(iManageFd, 0, SEEK_END) == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    const int iWritten =
        ZEBU_WriteAll(iManageFd, cs_szZero, static_cast<size_t>(ZEBU_MANAGE_LENGTH - info.st_size));
    // Back to 0 in any case: the lock starts at the offset, and must be everybody's.
    if (lseek(iManageFd, 0, SEEK_SET) == -1)
        return ZEBU_Fail(ZEBU_EPOS_LSEEK, errno);
    return iWritten;
}

int ZEBUManageFile::map()
{
    void* pMap = mmap(nullptr, ZEBU_MANAGE_LENGTH, PROT_READ | PROT_WRITE, MAP_SHARED, iManageFd, 0);
    if (pMap == MAP_FAILED)
        return ZEBU_Fail(ZEBU_EPOS_MMAP, errno);
    pManageMap = static_cast<tagZEBU_MANAGEMENT_DATA*>(pMap);
    return 0;
}

int ZEBUManageFile::checkIdentity(long* plLength) const
{
    struct stat info;
    if (stat(szManageFileName, &info) != 0)
        return ZEBU_Fail(ZEBU_EPOS_STAT, errno);
    // Not the number alone: with another file system mounted over the directory it may be the same.
    if (!isSameFile(info))
        return ZEBU_Fail(ZEBU_EPOS_MISMATCH, 0);
    *plLength = info.st_size;
    return 0;
}

int ZEBUManageFile::closeManagementFile()
{
    if (pManageMap != MAP_FAILED) {
        if (munmap(pManageMap, ZEBU_MANAGE_LENGTH) != 0)
            return ZEBU_Fail(ZEBU_EPOS_MUNMAP, errno);
        pManageMap = static_cast<tagZEBU_MANAGEMENT_DATA*>(MAP_FAILED);
    }
    if (iManageFd == -1)
        return 0;
    if (isForeign()) {
        iManageFd = -1;
        return 0;
    }
    (void)futimens(iManageFd, nullptr);
    const int iErrno = close(iManageFd) == 0 ? 0 : errno;
    if (iErrno != EBADF) // whatever else close says, the descriptor is gone, and the lock with it
        iManageFd = -1;
    return iErrno == 0 ? 0 : ZEBU_Fail(ZEBU_EPOS_CLOSE, iErrno);
}

// ---- The record ----------------------------------------------------------------------------------
//
// Every store is one word. Writers follow one another under the lock, but readers without it (the tool, and
// processes that run lock-free) look at any moment, and a writer may be killed at any.

static void fs_store(unsigned int& uShared, unsigned int uValue)
{
    __atomic_store_n(&uShared, uValue, __ATOMIC_RELEASE);
}

void ZEBUManageFile::publish(const tagZEBU_MANAGEMENT_DATA& rec)
{
    // Without its magic the record is invalid: a process killed below leaves work for the next repair.
    fs_store(pManageMap->magic, 0);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    publishSizes(rec.fileSize, rec.fileNum);
    publishPosition(rec.currentFile, rec.writeOffset);
    publishMode(rec.mode);
    fs_store(pManageMap->magic, ZEBU_MANAGE_MAGIC);
}

void ZEBUManageFile::publishSizes(unsigned int uFileSize, unsigned int uFileNum)
{
    fs_store(pManageMap->stamp, ZEBU_MANAGE_STAMP);
    fs_store(pManageMap->fileSize, uFileSize);
    fs_store(pManageMap->fileNum, uFileNum);
    fs_store(pManageMap->format, ZEBU_MANAGE_FORMAT);
}

void ZEBUManageFile::publishMode(unsigned int uMode)
{
    fs_store(pManageMap->mode, uMode);
}

void ZEBUManageFile::publishPosition(unsigned int uFile, unsigned int uOffset)
{
    const ZEBUWord uPosition = static_cast<ZEBUWord>(uFile) << 32 | uOffset;
    auto* const pPosition = reinterpret_cast<ZEBUWord*>(&pManageMap->writeOffset);
    __atomic_store_n(pPosition, uPosition, __ATOMIC_RELEASE);
}

void ZEBUManageFile::publishOffset(unsigned int uOffset)
{
    fs_store(pManageMap->writeOffset, uOffset);
}
