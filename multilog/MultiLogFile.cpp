// multilog/MultiLogFile.cpp -- construction, options, and opening and closing of a shared ring as a whole.
#include "multilog/MultiLogFile.h"

#include <stdio.h>
#include <unistd.h>

#include "logfile/FileHeader.h"
#include "multilog/EndOfData.h"
#include "multilog/RingLock.h"

constinit long ZebuMultiLogFile::cs_PAGESIZE = 0;

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
    uEodLength = ZEBU_EOD_LENGTH;
    if (cs_PAGESIZE == 0)
        cs_PAGESIZE = sysconf(_SC_PAGESIZE);
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

int ZebuMultiLogFile::openFileFunc(int* piFd, const char* pszName, int iFlags)
{
    return ZEBU_OpenFile(piFd, pszName, iFlags, iFileAttr);
}

int ZebuMultiLogFile::openFile()
{
    if (!pszPath)
        return 0;
    if (iManageFd != -1)
        return ZEBU_Fail(ZEBU_EPOS_NOTREADY, 0);
    if (checkFilePath(pszPath) != 0)
        return -1;
    return openManagementFile();
}

int ZebuMultiLogFile::closeFile()
{
    if (!pszPath)
        return 0;
    {
        ZEBURingLock lock(*this);
        if (lock.lock() != 0)
            return -1;
        if (closeTraceFile() != 0)
            return -1;
    }
    return closeManagementFile();
}
