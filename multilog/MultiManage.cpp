// multilog/MultiManage.cpp -- the management file: opening a ring, and reading, checking and repairing the
// record that its processes share.
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include "multilog/RingLock.h"

// ---- Opening -------------------------------------------------------------------------------------

int ZebuMultiLogFile::generateManagementFileName(const char* pszPrefix)
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

int ZebuMultiLogFile::openManagementFile()
{
    lCurrentFile = 0;
    lWriteOffset = 0;
    lMapSize = lFileSize;
    if (generateManagementFileName(pszPath) != 0 || checkFilePath(szManageFileName) != 0)
        return -1;
    struct stat info;
    const bool bExisted = stat(szManageFileName, &info) == 0;
    if (openFileFunc(&iManageFd, szManageFileName, O_RDWR | O_CREAT) != 0)
        return -1;
    ZEBURingLock lock(*this);
    const int iResult = lock.lock() == 0 ? openUnderLock(bExisted) : -1;
    if (iResult == -1)
        abandon();
    return iResult;
}

int ZebuMultiLogFile::openUnderLock(bool bExisted)
{
    (void)futimens(iManageFd, nullptr);
    struct stat info;
    if (fstat(iManageFd, &info) != 0)
        return ZEBU_Fail(ZEBU_EPOS_STAT, errno);
    ulManageIno = info.st_ino;
    ulManageDev = info.st_dev;
    const bool bHadData = bExisted || info.st_size != 0;
    if (completeManagementFile() != 0 || mapManagementFile() != 0)
        return -1;

    tagZEBU_MANAGEMENT_DATA rec;
    const bool bAdopted = bHadData && readAndCheckManagementFileMMap(&rec) == 0;
    bool bTraceFiles = false;
    if (bAdopted) {
        if (takeRecord(&rec) != 0)
            return -1;
        adoptRecord(rec);
    } else {
        const int iFound = searchTraceFileData();
        if (iFound == -1)
            return -1;
        bTraceFiles = iFound == 1;
        publishRecord(&rec, ZEBU_MODE_ALL);
    }
    if (openTraceFile(true) != 0)
        return -1;
    if (bAdopted)
        publishSizes();
    if (takeRecord(&rec) != 0)
        return -1;
    publishMode();
    if (putFileHeader(&rec, true) != 0)
        return -1;
    if (bHadData || !bTraceFiles)
        return 0;
    SetErrPos(ZEBU_EPOS_MISMATCH, 0);
    return 3;
}

void ZebuMultiLogFile::abandon()
{
    const ZEBUErrKeep keep;
    (void)closeTraceFile();
    (void)closeManagementFile();
}

int ZebuMultiLogFile::completeManagementFile()
{
    static constexpr char cs_szZero[ZEBU_MANAGE_LENGTH] = {};
    struct stat info;
    if (fstat(iManageFd, &info) != 0)
        return ZEBU_Fail(ZEBU_EPOS_STAT, errno);
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

int ZebuMultiLogFile::mapManagementFile()
{
    void* pMap = mmap(nullptr, ZEBU_MANAGE_LENGTH, PROT_READ | PROT_WRITE, MAP_SHARED, iManageFd, 0);
    if (pMap == MAP_FAILED)
        return ZEBU_Fail(ZEBU_EPOS_MMAP, errno);
    pManageMap = static_cast<tagZEBU_MANAGEMENT_DATA*>(pMap);
    return 0;
}

void ZebuMultiLogFile::adoptRecord(const tagZEBU_MANAGEMENT_DATA& rec)
{
    const bool bGrow = (uMode & ZEBU2_OPT_GROW) != 0;
    if (!bGrow || rec.fileSize > lFileSize)
        lFileSize = lMapSize = rec.fileSize;
    if (!bGrow || rec.fileNum > lFileNum)
        lFileNum = rec.fileNum;
    lCurrentFile = rec.currentFile;
    lWriteOffset = rec.writeOffset;
}

int ZebuMultiLogFile::checkManagementIdentity(long* plLength) const
{
    struct stat info;
    if (stat(szManageFileName, &info) != 0)
        return ZEBU_Fail(ZEBU_EPOS_STAT, errno);
    // Not the number alone: with another file system mounted over the directory it may be the same.
    if (info.st_ino != ulManageIno || info.st_dev != ulManageDev)
        return ZEBU_Fail(ZEBU_EPOS_MISMATCH, 0);
    *plLength = info.st_size;
    return 0;
}

int ZebuMultiLogFile::closeManagementFile()
{
    if (pManageMap != MAP_FAILED) {
        if (munmap(pManageMap, ZEBU_MANAGE_LENGTH) != 0)
            return ZEBU_Fail(ZEBU_EPOS_MUNMAP, errno);
        pManageMap = static_cast<tagZEBU_MANAGEMENT_DATA*>(MAP_FAILED);
    }
    if (iManageFd == -1)
        return 0;
    (void)futimens(iManageFd, nullptr);
    // Whatever close says, the descriptor is gone, and the lock with it.
    const int iResult = close(iManageFd) == 0 ? 0 : ZEBU_Fail(ZEBU_EPOS_CLOSE, errno);
    iManageFd = -1;
    uLockCount = 0;
    return iResult;
}

// ---- The record ----------------------------------------------------------------------------------

static void fs_store(unsigned int& uShared, unsigned int uValue)
{
    __atomic_store_n(&uShared, uValue, __ATOMIC_RELEASE);
}

int ZebuMultiLogFile::readAndCheckManagementFileMMap(tagZEBU_MANAGEMENT_DATA* pOut) const
{
    return ZEBU_ReadAndCheckManagementFile(pManageMap, pOut);
}

int ZebuMultiLogFile::repareManagementFile(tagZEBU_MANAGEMENT_DATA* pOut)
{
    if (searchTraceFileData() == -1)
        return -1;
    publishRecord(pOut, uMode);
    return 0;
}

int ZebuMultiLogFile::readRecord(tagZEBU_MANAGEMENT_DATA* pOut)
{
    return readAndCheckManagementFileMMap(pOut) == 0 ? 0 : repareManagementFile(pOut);
}

int ZebuMultiLogFile::takeRecord(tagZEBU_MANAGEMENT_DATA* pOut)
{
    if (readRecord(pOut) != 0)
        return -1;
    const bool bLockFree = (uMode & ZEBU2_OPT_NOLOCK) != 0;
    if (updateModeAndRetryMpLock(pOut->mode) != 0)
        return -1;
    if (!bLockFree || (uMode & ZEBU2_OPT_NOLOCK))
        return 0;
    // The lock was taken only now: what was read without it may be out of date.
    return readRecord(pOut) == 0 ? updateModeAndRetryMpLock(pOut->mode) : -1;
}

void ZebuMultiLogFile::publishRecord(tagZEBU_MANAGEMENT_DATA* pOut, unsigned int uRecordMode)
{
    *pOut = {.magic = ZEBU_MANAGE_MAGIC,
             .stamp = ZEBU_MANAGE_STAMP,
             .fileSize = static_cast<unsigned int>(lFileSize),
             .fileNum = static_cast<unsigned int>(lFileNum),
             .writeOffset = static_cast<unsigned int>(lWriteOffset),
             .currentFile = static_cast<unsigned int>(lCurrentFile),
             .mode = uRecordMode,
             .format = ZEBU_MANAGE_FORMAT};
    // Without its magic the record is invalid: a process killed below leaves work for the next repair.
    fs_store(pManageMap->magic, 0);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    publishSizes();
    publishPosition(pOut->currentFile, pOut->writeOffset);
    fs_store(pManageMap->mode, uRecordMode);
    fs_store(pManageMap->magic, ZEBU_MANAGE_MAGIC);
}

void ZebuMultiLogFile::publishSizes()
{
    fs_store(pManageMap->stamp, ZEBU_MANAGE_STAMP);
    fs_store(pManageMap->fileSize, static_cast<unsigned int>(lFileSize));
    fs_store(pManageMap->fileNum, static_cast<unsigned int>(lFileNum));
    fs_store(pManageMap->format, ZEBU_MANAGE_FORMAT);
}

void ZebuMultiLogFile::publishMode()
{
    fs_store(pManageMap->mode, uMode);
}

void ZebuMultiLogFile::publishPosition(unsigned int uFile, unsigned int uOffset)
{
    const ZEBUWord uPosition = static_cast<ZEBUWord>(uFile) << 32 | uOffset;
    __atomic_store_n(reinterpret_cast<ZEBUWord*>(&pManageMap->writeOffset), uPosition, __ATOMIC_RELEASE);
}

void ZebuMultiLogFile::publishOffset(unsigned int uOffset)
{
    fs_store(pManageMap->writeOffset, uOffset);
}
