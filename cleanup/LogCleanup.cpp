// cleanup/LogCleanup.cpp -- the entry point, the list and the two rules.
#include "cleanup/LogCleanup.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "frame/ErrPos.h"

int ZEBU2_LogFileClear(const char* pszPattern, int iMode, int iValue)
{
    const ZEBUErrScope err(ZEBU_FUNC_LOG_FILE_CLEAR);
    if (!pszPattern || strnlen(pszPattern, ZEBU_PATTERN_MAX + 1) > ZEBU_PATTERN_MAX || iValue < 0)
        return err.fail(ZEBU_EPOS_PARAM);
    if (iMode == ZEBU2_CLEAR_BY_AGE)
        return err.finish(ZEBU_DeleteLogByTime(pszPattern, iValue));
    if (iMode == ZEBU2_CLEAR_BY_NUMBER)
        return err.finish(ZEBU_DeleteLogByNumber(pszPattern, iValue));
    return err.fail(ZEBU_EPOS_PARAM);
}

int ZEBU_DeleteLogByTime(const char* pszPattern, int iSeconds)
{
    ZEBUFileScan scan(pszPattern);
    if (scan.open() != 0)
        return -1;
    const long lLimit = time(nullptr) - iSeconds;
    int iResult = 0;
    int iFound;
    while ((iFound = scan.next()) == 1) {
        if (scan.modified() <= lLimit && ZEBU_RemoveUnlockedFile(scan.path()) != 0)
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
    if (scan.open() != 0)
        return -1;
    int iFound;
    while ((iFound = scan.next()) == 1)
        fileList.addElement(scan.path(), scan.modified());
    return iFound;
}

int ZEBU_ExecDeleteLogByNumber(ZEBUFindFileList& fileList, int iKeep)
{
    const ZEBUFindFileElement* pElement = fileList.pHead;
    for (int i = 0; i < iKeep && pElement; ++i)
        pElement = pElement->pNext;
    int iResult = 0;
    for (; pElement; pElement = pElement->pNext) {
        if (ZEBU_RemoveUnlockedFile(pElement->szPath) != 0)
            iResult = -1;
    }
    return iResult;
}

ZEBUFindFileList::~ZEBUFindFileList()
{
    while (ZEBUFindFileElement* pElement = pHead) {
        pHead = pElement->pNext;
        free(pElement);
    }
}

// Whether `lLeft` is later than `lRight`, by the low 32 bits of the two.
static bool fs_isLater(long lLeft, long lRight)
{
    return static_cast<int>(static_cast<unsigned int>(lLeft) - static_cast<unsigned int>(lRight)) > 0;
}

void ZEBUFindFileList::addElement(const char* pszPath, long lMtime)
{
    auto* pElement = static_cast<ZEBUFindFileElement*>(malloc(sizeof(ZEBUFindFileElement)));
    if (!pElement) {
        SetErrPos(ZEBU_EPOS_NOMEM, errno);
        return;
    }
    pElement->lMtime = lMtime;
    memcpy(pElement->szPath, pszPath, strlen(pszPath) + 1);
    ZEBUFindFileElement** ppPlace = &pHead;
    while (*ppPlace && fs_isLater((*ppPlace)->lMtime, lMtime))
        ppPlace = &(*ppPlace)->pNext;
    pElement->pNext = *ppPlace;
    *ppPlace = pElement;
    ++iCount;
}
