// logfile/FileHeader.cpp -- the two header lines of a trace file.
#include "logfile/FileHeader.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "output/ltostr.h"

int ZEBU_BuildFileHeader(char (&szHeader)[ZEBU_FILE_HEADER_MAX], const tagZEBU_FILE_HEADER& fields)
{
    char* p = szHeader;
    const auto append = [&p](const char* pText, size_t uLength) {
        memcpy(p, pText, uLength);
        p += uLength;
    };
    append(ZEBU_HEADER_MARK, sizeof ZEBU_HEADER_MARK - 1);
    ZEBU_PutField(p, fields.pszSystem, ZEBU_SYSTEM_WIDTH);
    p += ZEBU_SYSTEM_WIDTH;
    ZEBU_PutField(p, fields.pszHostName, ZEBU_HOST_NAME_WIDTH);
    p += ZEBU_HOST_NAME_WIDTH;
    append(fields.pszTimeZone, ZEBU_TIME_ZONE_WIDTH);
    append(" ", 1);
    append(fields.pszStartTime, ZEBU_TIME_TEXT);
    append("\r\n", 2);
    append(ZEBU_CAPTION, sizeof ZEBU_CAPTION - 1);
    append(fields.pszLang, strnlen(fields.pszLang, ZEBU_LANG_MAX));
    append("\r\n", 2);
    return static_cast<int>(p - szHeader);
}

void ZEBU_FormatSystem(char (&szSystem)[ZEBU_SYSTEM_WIDTH])
{
    utsname info;
    char szWhole[sizeof info.sysname + sizeof info.release + sizeof info.version] = "Unknown";
    if (uname(&info) == 0)
        (void)snprintf(szWhole, sizeof szWhole, "%s %s %s", info.sysname, info.release, info.version);
    memcpy(szSystem, szWhole, sizeof szSystem - 1);
    szSystem[sizeof szSystem - 1] = '\0';
}

void ZEBU_FormatHostName(char (&szHostName)[ZEBU_HOST_NAME_WIDTH])
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

void ZEBU_FormatTimeZone(char (&szTimeZone)[ZEBU_TIME_ZONE_WIDTH + 1])
{
    memcpy(szTimeZone, "TZ=", 3);
    ZEBU_PutField(szTimeZone + 3, fs_environment("TZ"), ZEBU_TIME_ZONE_WIDTH - 3);
    szTimeZone[ZEBU_TIME_ZONE_WIDTH] = '\0';
}

void ZEBU_FormatLang(char (&szLang)[ZEBU_LANG_MAX + 1])
{
    (void)snprintf(szLang, sizeof szLang, "message(LANG=%.64s)", fs_environment("LANG"));
}
