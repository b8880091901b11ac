// logfile/FileHeader.cpp -- the two header lines of a trace file.
#include "logfile/FileHeader.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "output/LocalTime.h"
#include "output/ltostr.h"

// The words stand over the columns of a trace line.
static const char cs_szCaption[] =
    "\r\n     yyyy/mm/dd hh:mm:ss.sss                      pid      tid      message-id            ";
static_assert(sizeof cs_szCaption - 1 == 2 + 90);

enum { cs_iMark = 5, cs_iSystem = 61, cs_iHostName = 17, cs_iTimeZone = 32, cs_iLangMax = 78 };
static_assert(cs_iMark + cs_iSystem + cs_iHostName + cs_iTimeZone + 1 + ZEBU_TIME_TEXT + 2 + 90 +
                  cs_iLangMax + 2 ==
              ZEBU_FILE_HEADER_MAX);

int ZEBU_BuildFileHeader(char (&szHeader)[ZEBU_FILE_HEADER_MAX], const tagZEBU_FILE_HEADER& fields)
{
    char* p = szHeader;
    const auto append = [&p](const char* pText, size_t uLength) {
        memcpy(p, pText, uLength);
        p += uLength;
    };
    append("**** ", cs_iMark);
    ZEBU_PutField(p, fields.pszSystem, cs_iSystem);
    p += cs_iSystem;
    ZEBU_PutField(p, fields.pszHostName, cs_iHostName);
    p += cs_iHostName;
    append(fields.pszTimeZone, cs_iTimeZone);
    append(" ", 1);
    append(fields.pszStartTime, ZEBU_TIME_TEXT);
    append(cs_szCaption, sizeof cs_szCaption - 1);
    append(fields.pszLang, strnlen(fields.pszLang, cs_iLangMax));
    append("\r\n", 2);
    return static_cast<int>(p - szHeader);
}

void ZEBU_FormatSystem(char (&szSystem)[61])
{
    utsname info;
    char szWhole[sizeof info.sysname + sizeof info.release + sizeof info.version] = "Unknown";
    if (uname(&info) == 0)
        (void)snprintf(szWhole, sizeof szWhole, "%s %s %s", info.sysname, info.release, info.version);
    memcpy(szSystem, szWhole, sizeof szSystem - 1);
    szSystem[sizeof szSystem - 1] = '\0';
}

void ZEBU_FormatHostName(char (&szHostName)[17])
{
    if (gethostname(szHostName, sizeof szHostName) != 0) // also when the name does not fit
        strcpy(szHostName, "Unknown");
    szHostName[sizeof szHostName - 1] = '\0';
}

static const char* fs_environment(const char* pszName)
{
    const char* pszValue = getenv(pszName);
    return pszValue ? pszValue : "Unknown";
}

void ZEBU_FormatTimeZone(char (&szTimeZone)[33])
{
    memcpy(szTimeZone, "TZ=", 3);
    ZEBU_PutField(szTimeZone + 3, fs_environment("TZ"), 29);
    szTimeZone[32] = '\0';
}

void ZEBU_FormatLang(char (&szLang)[79])
{
    (void)snprintf(szLang, sizeof szLang, "message(LANG=%.64s)", fs_environment("LANG"));
}
