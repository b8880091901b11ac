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

constexpr char cs_szKeyLogFile[] = "LogFile";
constexpr char cs_szFormatText[] = "%4097s";
static_assert(ZEBU_CNF_TEXT_MAX == 4097, "the width in the format");

// In the order in which a line is compared with them; one of the three fields is set.
struct tagZEBU_CNF_KEY
{
    const char* pszName;
    int ZEBUConfigInf::*piField;
    unsigned int ZEBUConfigInf::*puField;
    char (ZEBUConfigInf::*pszField)[ZEBU_CNF_TEXT_MAX + 1];
};

constexpr tagZEBU_CNF_KEY cs_keys[] = {
    {"Release", &ZEBUConfigInf::iRelease, nullptr, nullptr},
    {"LogFNum", &ZEBUConfigInf::iLogFNum, nullptr, nullptr},
    {"MonPath", nullptr, nullptr, &ZEBUConfigInf::szMonPath},
    {cs_szKeyLogFile, nullptr, nullptr, &ZEBUConfigInf::szLogFile},
    {"LogSize", nullptr, &ZEBUConfigInf::uLogSize, nullptr},
    {"MapSize", nullptr, &ZEBUConfigInf::uMapSize, nullptr},
    {"WatchDog", &ZEBUConfigInf::iWatchDog, nullptr, nullptr},
    {"IntervalSec", &ZEBUConfigInf::iIntervalSec, nullptr, nullptr},
    {"MaxMsgNum", &ZEBUConfigInf::iMaxMsgNum, nullptr, nullptr},
};

// Returns where the value of a line begins, or null. A blank must stand between the key and the "=",
// since the key is the first blank-delimited word whatever it holds.
const char* fs_value(const char* pszLine)
{
    int iValue = -1;
    (void)sscanf(pszLine, "%*s = %n", &iValue);
    return iValue == -1 ? nullptr : pszLine + iValue;
}

// The conversions of scanf's %d and %u: they leave a number that does not fit undefined, these keep its
// low 32 bits (of the largest or smallest long when it does not fit that either).
void fs_readInt(const char* pszValue, int* piField)
{
    char* pszEnd;
    const long lValue = strtol(pszValue, &pszEnd, 10);
    if (pszEnd != pszValue)
        *piField = static_cast<int>(lValue);
}

void fs_readUnsigned(const char* pszValue, unsigned int* puField)
{
    char* pszEnd;
    const unsigned long ulValue = strtoul(pszValue, &pszEnd, 10);
    if (pszEnd != pszValue)
        *puField = static_cast<unsigned int>(ulValue);
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
            readLine(pszLine);
    }
    if (pszOverride)
        return placeByLogFile();
    memcpy(szMMapDir, cs_pszMMapSpoolDir, sizeof cs_pszMMapSpoolDir);
    memcpy(szMMapFile, cs_pszMMapSpoolFile, sizeof cs_pszMMapSpoolFile);
    iLoaded = 1;
    return 0;
}

void ZEBUConfigInf::readLine(const char* pszLine)
{
    const tagZEBU_CNF_KEY* pKey = cs_keys;
    const tagZEBU_CNF_KEY* const pEnd = cs_keys + sizeof cs_keys / sizeof *cs_keys;
    while (pKey != pEnd && !ZEBU_IsCnfKey(pszLine, pKey->pszName))
        ++pKey;
    if (pKey == pEnd)
        return;
    if (pKey->pszName == cs_szKeyLogFile)
        iLoaded = 1;
    const char* pszValue = fs_value(pszLine);
    if (!pszValue)
        return;
    if (pKey->piField)
        fs_readInt(pszValue, &(this->*pKey->piField));
    else if (pKey->puField)
        fs_readUnsigned(pszValue, &(this->*pKey->puField));
    else
        (void)sscanf(pszValue, cs_szFormatText, this->*pKey->pszField);
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
