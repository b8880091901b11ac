// config/ConfFile.cpp -- choice and reading of the configuration file.
#include "config/ConfFile.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "config/GetPath.h"
#include "frame/Fd.h"

// Whether a path is one of the two standard files, or cannot be told.
static bool fs_isStandardFile(const char* pszPath)
{
    char szAbsolute[ZEBU_CNF_PATH_MAX + 1];
    return ZEBU_GetAbsolutePath(pszPath, szAbsolute, ZEBU_CNF_PATH_MAX) != 0 ||
           strcmp(szAbsolute, ZEBU1_cs_pszCnfFileName) == 0 ||
           strcmp(szAbsolute, ZEBU_cs_pszCnfFileName) == 0;
}

const char* ZEBU_GetCnfOverride()
{
    const char* pszName = secure_getenv(ZEBU_cs_pszCnf2Env);
    if (!pszName || pszName[0] == '\0' || strnlen(pszName, ZEBU_CNF_PATH_MAX + 1) > ZEBU_CNF_PATH_MAX)
        return nullptr;
    if (fs_isStandardFile(pszName))
        return nullptr;
    struct stat info;
    if (stat(pszName, &info) != 0 || (info.st_mode & S_IFREG) == 0)
        return nullptr;
    return pszName;
}

ZEBUConfFile::ZEBUConfFile(const char* pszName) : pStream(nullptr)
{
    const int iFd = ZEBU_Lift(open(pszName, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (iFd == -1)
        return;
    pStream = fdopen(iFd, "r");
    if (!pStream)
        (void)close(iFd);
}

ZEBUConfFile::~ZEBUConfFile()
{
    if (pStream)
        (void)fclose(pStream);
}

const char* ZEBUConfFile::nextLine()
{
    // Not by the length of the text: it may hold zero bytes. A piece fills the buffer up to a last character
    // that is no line feed; otherwise one of the two bytes keeps its value.
    constexpr size_t uLast = sizeof szLine - 2;
    szLine[uLast] = '\n';
    szLine[uLast + 1] = '\n';
    bLaterPiece = bGoesOn;
    iLine += bLaterPiece ? 0 : 1;
    const char* pszText = fgets(szLine, sizeof szLine, pStream);
    bGoesOn = szLine[uLast] != '\n' && szLine[uLast + 1] == '\0';
    return pszText;
}

bool ZEBU_IsCnfKey(const char* pszLine, const char* pszKey)
{
    return strncmp(pszLine, pszKey, strlen(pszKey)) == 0;
}
