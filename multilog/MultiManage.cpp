// multilog/MultiManage.cpp -- opening and closing a shared ring, and the record that its processes agree by:
// adopting it, making it, rebuilding it when it is damaged.
#include <sys/stat.h>

#include "multilog/RingLock.h"

// ---- Opening and closing -------------------------------------------------------------------------

int ZebuMultiLogFile::openFile()
{
    if (!pszPath)
        return 0;
    if (manage.isOpen())
        return ZEBU_Fail(ZEBU_EPOS_NOTREADY, 0);
    if (ZEBU_CheckFilePath(pszPath) != 0)
        return -1;
    return openManagementFile();
}

int ZebuMultiLogFile::openManagementFile()
{
    lCurrentFile = 0;
    lWriteOffset = 0;
    lMapSize = lFileSize;
    if (manage.generateManagementFileName(pszPath) != 0 || ZEBU_CheckFilePath(manage.name()) != 0)
        return -1;
    struct stat info;
    const bool bExisted = stat(manage.name(), &info) == 0;
    if (manage.open(iFileAttr) != 0)
        return -1;
    ZEBURingLock lock(*this);
    const int iResult = lock.lock() == 0 ? openUnderLock(bExisted) : -1;
    if (iResult == -1)
        abandon();
    return iResult;
}

// Of several processes that start at once, the lock lets exactly one find the file without data and make the
// record; the others adopt what it made.
int ZebuMultiLogFile::openUnderLock(bool bExisted)
{
    long lLength;
    if (manage.prepare(&lLength) != 0 || manage.map() != 0)
        return -1;
    const bool bHadData = bExisted || lLength != 0;
    tagZEBU_MANAGEMENT_DATA rec;
    const bool bAdopt = bHadData && manage.readAndCheckManagementFileMMap(&rec) == 0;
    const int iFound = bAdopt ? adoptRing(&rec) : makeRing();
    if (iFound == -1 || announce() != 0)
        return -1;
    if (bHadData || iFound == 0)
        return 0;
    SetErrPos(ZEBU_EPOS_MISMATCH, 0);
    return 3;
}

int ZebuMultiLogFile::adoptRing(tagZEBU_MANAGEMENT_DATA* pRec)
{
    if (takeRecord(pRec) != 0)
        return -1;
    adoptRecord(*pRec);
    if (openTraceFile(true) != 0)
        return -1;
    // Only now that the files are there: with ZEBU2_OPT_GROW the values may be larger than before.
    manage.publishSizes(static_cast<unsigned int>(lFileSize), static_cast<unsigned int>(lFileNum));
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

int ZebuMultiLogFile::makeRing()
{
    const int iFound = searchTraceFileData();
    if (iFound == -1)
        return -1;
    tagZEBU_MANAGEMENT_DATA rec;
    publishRecord(&rec, ZEBU_MODE_ALL);
    return openTraceFile(true) == 0 ? iFound : -1;
}

int ZebuMultiLogFile::announce()
{
    tagZEBU_MANAGEMENT_DATA rec;
    if (takeRecord(&rec) != 0)
        return -1;
    manage.publishMode(uMode);
    return putFileHeader(&rec, true);
}

int ZebuMultiLogFile::closeFile()
{
    if (!pszPath)
        return 0;
    {
        ZEBURingLock lock(*this);
        if (!manage.isForeign() && lock.lock() != 0) // else it would be a lock on a file of the application
            return -1;
        if (closeTraceFile() != 0)
            return -1;
    }
    return closeManagementFile();
}

void ZebuMultiLogFile::abandon()
{
    const ZEBUErrKeep keep;
    (void)closeTraceFile();
    (void)closeManagementFile();
}

int ZebuMultiLogFile::closeManagementFile()
{
    const int iResult = manage.closeManagementFile();
    if (!manage.isOpen())
        uLockCount = 0; // the lock went with the descriptor
    return iResult;
}

// ---- The record ----------------------------------------------------------------------------------

int ZebuMultiLogFile::readRecord(tagZEBU_MANAGEMENT_DATA* pOut)
{
    return manage.readAndCheckManagementFileMMap(pOut) == 0 ? 0 : repareManagementFile(pOut);
}

int ZebuMultiLogFile::repareManagementFile(tagZEBU_MANAGEMENT_DATA* pOut)
{
    if (searchTraceFileData() == -1)
        return -1;
    publishRecord(pOut, uMode);
    return 0;
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
    manage.publish(*pOut);
}
