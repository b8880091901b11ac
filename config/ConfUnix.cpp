// config/ConfUnix.cpp -- keys, values, and where the trace area lies.
#include "config/ConfUnix.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "config/ConfFile.h"
#include "config/GetPath.h"

namespace {

constexpr char cs_pszMMapSpoolDir[] = "/opt/kelvora/ZEBULib2/mmap";
constexpr char cs_pszMMapSpoolFile[] = "/opt/kelvora/ZEBULib2/mmap/zebu2mmap.mm";

// Behind the parent directory of what "LogFile" names, when another file than the standard one is read.
constexpr char ZEBU_cs_pszTestSpoolDir[] = "/mmap";
constexpr char ZEBU_cs_pszTestMMapFile[] = "/mmap/zebu2mmap.mm";

constexpr char cs_szFormatText[] = "%4097s";
static_assert(ZEBU_CNF_TEXT_MAX == 4097, "the width in the format");

// The conversions of scanf's %d and %u: they leave a number that does not fit undefined, these keep its
// low 32 bits (of the largest or smallest long when it does not fit that either).
bool fs_readInt(const char* pszValue, int* piField)
{
    char* pszEnd;
    const long lValue = strtol(pszValue, &pszEnd, 10);
    if (pszEnd != pszValue)
        *piField = static_cast<int>(lValue);
    return pszEnd != pszValue;
}

bool fs_readUnsigned(const char* pszValue, unsigned int* puField)
{
    char* pszEnd;
    const unsigned long ulValue = strtoul(pszValue, &pszEnd, 10);
    if (pszEnd != pszValue)
        *puField = static_cast<unsigned int>(ulValue);
    return pszEnd != pszValue;
}

void fs_copyText(char (&szField)[ZEBU_CNF_TEXT_MAX + 1], const char* pszText, size_t uLength)
{
    memcpy(szField, pszText, uLength);
    szField[uLength] = '\0';
}

} // namespace

ZEBUConfigInf::ZEBUConfigInf()
{
    setDefaults();
    iLoaded = 0;
    (void)loadCnf();
    if (iLoaded != 0)
        return;
    setDefaults();
    iLoaded = 1;
    (void)loadCnf();
}

void ZEBUConfigInf::setDefaults()
{
    iRelease = getDefaultRelease();
    setMonPath(getDefaultMonPath());
    setLogFileName(getDefaultLogFileName());
    uLogSize = getDefaultLogFileSizeMax();
    iLogFNum = getDefaultLogFilesNum();
    iWatchDog = getDefaultIntervalTime();
    uMapSize = getDefaultMMapFileSize();
    iIntervalSec = getDefaultLimitIntervalSec();
    iMaxMsgNum = getDefaultMaxMsgNumber();
    szMMapDir[0] = '\0';
    szMMapFile[0] = '\0';
}

int ZEBUConfigInf::loadCnf()
{
    const char* pszOverride = iLoaded == 0 ? ZEBU_GetCnfOverride() : nullptr;
    {
        ZEBUConfFile file(pszOverride ? pszOverride : ZEBU_cs_pszCnfFileName);
        if (!file.isOpen())
            return -1;
        while (const char* pszLine = file.nextLine())
            (void)readLine(pszLine);
    }
    if (pszOverride)
        return placeByLogFile();
    memcpy(szMMapDir, cs_pszMMapSpoolDir, sizeof cs_pszMMapSpoolDir);
    memcpy(szMMapFile, cs_pszMMapSpoolFile, sizeof cs_pszMMapSpoolFile);
    iLoaded = 1;
    return 0;
}

const char* ZEBU_CnfValue(const char* pszLine)
{
    int iValue = -1;
    (void)sscanf(pszLine, "%*s = %n", &iValue);
    return iValue == -1 ? nullptr : pszLine + iValue;
}

ZEBUCnfLine ZEBUConfigInf::readLine(const char* pszLine, const tagZEBU_CNF_KEY** ppKey)
{
    const tagZEBU_CNF_KEY* pKey = nullptr;
    for (const tagZEBU_CNF_KEY& key : ZEBU_cs_cnfKeys) {
        if (!pKey && ZEBU_IsCnfKey(pszLine, key.pszName))
            pKey = &key;
    }
    if (ppKey)
        *ppKey = pKey;
    if (!pKey)
        return ZEBU_CNF_NO_KEY;
    if (pKey->pszField == &ZEBUConfigInf::szLogFile)
        iLoaded = 1;
    const char* pszValue = ZEBU_CnfValue(pszLine);
    if (!pszValue)
        return ZEBU_CNF_NO_VALUE;
    bool bTaken;
    if (pKey->piField)
        bTaken = fs_readInt(pszValue, &(this->*pKey->piField));
    else if (pKey->puField)
        bTaken = fs_readUnsigned(pszValue, &(this->*pKey->puField));
    else
        bTaken = sscanf(pszValue, cs_szFormatText, this->*pKey->pszField) == 1;
    return bTaken ? ZEBU_CNF_TAKEN : ZEBU_CNF_UNREADABLE;
}

// The area lies in the subdirectory mmap beside the file that "LogFile" names.
int ZEBUConfigInf::placeByLogFile()
{
    constexpr size_t uFileLength = sizeof ZEBU_cs_pszTestMMapFile - 1;
    if (ZEBU_GetParentPath(szLogFile, szMMapDir, ZEBU_CNF_PATH_MAX) != 0 ||
        strlen(szMMapDir) + uFileLength > ZEBU_CNF_PATH_MAX) {
        szMMapDir[0] = '\0';
        szMMapFile[0] = '\0';
        iLoaded = 0;
        return -1;
    }
    const size_t uLength = strlen(szMMapDir);
    memcpy(szMMapFile, szMMapDir, uLength);
    memcpy(szMMapFile + uLength, ZEBU_cs_pszTestMMapFile, sizeof ZEBU_cs_pszTestMMapFile);
    memcpy(szMMapDir + uLength, ZEBU_cs_pszTestSpoolDir, sizeof ZEBU_cs_pszTestSpoolDir);
    return 0;
}

void ZEBUConfigInf::setMonPath(const char* pszPath)
{
    fs_copyText(szMonPath, pszPath, strnlen(pszPath, ZEBU_CNF_TEXT_MAX));
}

void ZEBUConfigInf::setLogFileName(const char* pszName)
{
    fs_copyText(szLogFile, pszName, strnlen(pszName, ZEBU_CNF_TEXT_MAX));
}
