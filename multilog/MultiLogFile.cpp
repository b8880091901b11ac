// multilog/MultiLogFile.cpp -- construction of a shared ring, and its options.
#include "multilog/MultiLogFile.h"

#include <stdio.h>

#include "logfile/FileHeader.h"

ZebuMultiLogFile::ZebuMultiLogFile(const tagZEBU_LOGFILE_SPEC* pSpec)
{
    if (!pSpec)
        return;
    lSpecSize = pSpec->lMaxFileSize;
    lSpecFileNum = pSpec->lFileCount;
    if (pSpec->pszFilePath) {
        (void)snprintf(szPath, sizeof szPath, "%s", pSpec->pszFilePath);
        pszPath = szPath;
    }
    lFileSize = lMapSize = lSpecSize;
    lFileNum = lSpecFileNum;
    ZEBU_FormatHostName(szHostName);
    ZEBU_FormatSystem(szSystem);
    ZEBU_FormatNow(szStartTime);
    ZEBU_FormatTimeZone(szTimeZone);
    ZEBU_FormatLang(szLang);
}

void ZebuMultiLogFile::setOption(int iOption)
{
    uOption = static_cast<unsigned int>(iOption);
    uMode = uOption | ZEBU_MODE_UNUSED;
}

int ZebuMultiLogFile::setLockWaitTime(int iMilliseconds)
{
    const int iPrevious = getLockWaitTime();
    if (pszPath)
        iLockWaitTime = iMilliseconds;
    return iPrevious;
}

int ZebuMultiLogFile::setLockRetryTimes(int iTimes)
{
    const int iPrevious = getLockRetryTimes();
    if (pszPath)
        iLockRetryTimes = iTimes;
    return iPrevious;
}
