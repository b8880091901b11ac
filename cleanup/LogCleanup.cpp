// cleanup/LogCleanup.cpp -- the entry point and the two rules.
#include "cleanup/LogCleanup.h"

#include <string.h>
#include <time.h>
#include <unistd.h>

#include "frame/ErrPos.h"
#include "frame/Guards.h"

int ZEBU2_LogFileClear(const char* pszPattern, int iMode, int iValue)
{
    const ZEBUErrScope err(ZEBU_FUNC_LOG_FILE_CLEAR);
    if (!pszPattern || strnlen(pszPattern, ZEBU_PATTERN_MAX + 1) > ZEBU_PATTERN_MAX || iValue < 0)
        return err.fail(ZEBU_EPOS_PARAM);
    const ZEBUCancelGuard cancel; // the directory, the list
    if (iMode == ZEBU2_CLEAR_BY_AGE)
        return err.finish(ZEBU_DeleteLogByTime(pszPattern, iValue));
    if (iMode == ZEBU2_CLEAR_BY_NUMBER)
        return err.finish(ZEBU_DeleteLogByNumber(pszPattern, iValue));
    return err.fail(ZEBU_EPOS_PARAM);
}

static int fs_openScan(ZEBUFileScan& scan)
{
    return scan.open() == 0 ? 0 : ZEBU_Fail(ZEBU_EPOS_OPENDIR, errno);
}

static int fs_nextFile(ZEBUFileScan& scan)
{
    const int iFound = scan.next();
    return iFound == -1 ? ZEBU_Fail(ZEBU_EPOS_STAT, errno) : iFound;
}

static int fs_removeUnlocked(const char* pszPath)
{
    return !ZEBU_IsRemovable(pszPath) || unlink(pszPath) == 0 ? 0 : ZEBU_Fail(ZEBU_EPOS_UNLINK, errno);
}

int ZEBU_DeleteLogByTime(const char* pszPattern, int iSeconds)
{
    ZEBUFileScan scan(pszPattern);
    if (fs_openScan(scan) != 0)
        return -1;
    const long lLimit = time(nullptr) - iSeconds;
    int iResult = 0;
    int iFound;
    while ((iFound = fs_nextFile(scan)) == 1) {
        if (scan.modified() <= lLimit && fs_removeUnlocked(scan.path()) != 0)
            iResult = -1;
    }
    return iFound == 0 ? iResult : -1;
}

int ZEBU_DeleteLogByNumber(const char* pszPattern, int iKeep)
{
    ZEBUFindFileList fileList;
    if (ZEBU_CheckNumberOfFileDelete(pszPattern, fileList) != 0)
        return -1;
    return ZEBU_ExecDeleteLogByNumber(fileList, iKeep);
}

int ZEBU_CheckNumberOfFileDelete(const char* pszPattern, ZEBUFindFileList& fileList)
{
    ZEBUFileScan scan(pszPattern);
    if (fs_openScan(scan) != 0)
        return -1;
    int iFound;
    while ((iFound = fs_nextFile(scan)) == 1) {
        if (!fileList.addElement(scan.path(), scan.modified()))
            SetErrPos(ZEBU_EPOS_NOMEM, errno);
    }
    fileList.sort();
    return iFound;
}

int ZEBU_ExecDeleteLogByNumber(ZEBUFindFileList& fileList, int iKeep)
{
    const ZEBUFindFileElement* pElement = fileList.pHead;
    for (int i = 0; i < iKeep && pElement; ++i)
        pElement = pElement->pNext;
    int iResult = 0;
    for (; pElement; pElement = pElement->pNext) {
        if (fs_removeUnlocked(pElement->path()) != 0)
            iResult = -1;
    }
    return iResult;
}
