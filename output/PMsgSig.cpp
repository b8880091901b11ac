// output/PMsgSig.cpp -- the signal-safe put. Compiled so that no loop here becomes a library call.
#include "output/PMsgSig.h"

#include <errno.h>

#include "frame/ErrPos.h"
#include "frame/GrobalVarUnix.h"
#include "mmap/AreaGuard.h"
#include "mmap/MMap.h"
#include "output/ltostr.h"
#include "output/PutMsg.h"

char* ZEBU_strcpy_r(char* pszTo, const char* pszFrom)
{
    if (!pszTo || !pszFrom)
        return nullptr;
    int i = 0;
    do
        pszTo[i] = pszFrom[i];
    while (pszFrom[i++] != '\0');
    return pszTo;
}

char* ZEBU_strncpy_r(char* pszTo, const char* pszFrom, int iCount)
{
    if (!pszTo || !pszFrom)
        return nullptr;
    for (int i = 0; i < iCount; ++i) {
        pszTo[i] = pszFrom[i];
        if (pszFrom[i] == '\0')
            break;
    }
    return pszTo;
}

int ZEBU_strlen_r(const char* pszText)
{
    int iLength = 0;
    while (pszText && pszText[iLength] != '\0')
        ++iLength;
    return iLength;
}

void* ZEBU_memset_r(void* pTo, int iByte, unsigned long ulCount)
{
    for (unsigned long i = 0; pTo && i < ulCount; ++i)
        static_cast<unsigned char*>(pTo)[i] = static_cast<unsigned char>(iByte);
    return pTo;
}

int ZEBU_MakeupTraceMessageHeader_SigSafe(char* pszLine, const char* pszAppName)
{
    ZEBU_memset_r(pszLine, ' ', ZEBU_COL_BODY);
    ZEBU2_IntToStr(pszLine + ZEBU_COL_COUNT, ZEBU_TakeMsgCount(), 4);
    ZEBU_strncpy_r(pszLine + ZEBU_COL_TIME, ZEBU_NO_TIME, ZEBU_TIME_TEXT);
    ZEBU_PutField(pszLine + ZEBU_COL_APP, pszAppName, ZEBU_APP_NAME);
    char szProcessId[ZEBU_PROCESS_ID + 1];
    ZEBU_LoadProcessId(szProcessId);
    ZEBU_strncpy_r(pszLine + ZEBU_COL_PID, szProcessId, ZEBU_PROCESS_ID);
    ZEBU_strncpy_r(pszLine + ZEBU_COL_TID, "-------- ", 9);
    return 0;
}

// A handler may have interrupted the library anywhere, so the area is used between two marks that whoever
// takes it out of service waits for.
static int fs_putToArea(const char* pszLine, unsigned int uLength)
{
    ZEBU_EnterSigSafePut();
    int iResult = -1;
    if (ZEBUMMapFile* pMMap = ZEBU2_pMMap.load())
        iResult = pMMap->writeToMMapSigSafe(pszLine, uLength);
    else
        ZEBU2_PutMsgSigSafe_ErrorPos = ZEBU_EPOS_NOTREADY;
    ZEBU_LeaveSigSafePut();
    return iResult;
}

int ZEBU2_PutMsgSigSafe(const char* pszText)
{
    ZEBU2_PutMsgSigSafe_ErrorCode = 0;
    ZEBU2_PutMsgSigSafe_ErrorPos = 0;
    if (!pszText) {
        ZEBU2_PutMsgSigSafe_ErrorPos = ZEBU_EPOS_PARAM;
        return -1;
    }
    char szLine[ZEBU_LINE_BUFFER];
    char szAppName[ZEBU_APP_NAME + 1];
    ZEBU_LoadAppName(szAppName);
    (void)ZEBU_MakeupTraceMessageHeader_SigSafe(szLine, szAppName);
    int iLength = 0;
    while (iLength < ZEBU_PLAIN_TEXT_MAX && pszText[iLength] != '\0')
        ++iLength;
    ZEBU_strncpy_r(szLine + ZEBU_COL_BODY, pszText, iLength);
    ZEBU_strcpy_r(szLine + ZEBU_COL_BODY + iLength, "\r\n");

    const int iErrno = errno;
    const int iResult = fs_putToArea(szLine, static_cast<unsigned int>(ZEBU_COL_BODY + iLength + 2));
    errno = iErrno;
    return iResult;
}
