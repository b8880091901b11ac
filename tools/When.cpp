#include "tools/When.h"

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

namespace {
ZEBUTime fs_pack(const tm& local, long lMilliseconds)
{
    const long lDate = (local.tm_year + 1900L) * 10000 + (local.tm_mon + 1) * 100L + local.tm_mday;
    return ((lDate * 100 + local.tm_hour) * 100 + local.tm_min) * 100000 + local.tm_sec * 1000L +
           lMilliseconds;
}

bool fs_packSeconds(time_t seconds, long lMilliseconds, ZEBUTime* plTime)
{
    tm local;
    if (!localtime_r(&seconds, &local))
        return false;
    *plTime = fs_pack(local, lMilliseconds);
    return true;
}

// Midnight of today, or of a day before it.
tm fs_day(int iDaysBack)
{
    const time_t now = time(nullptr);
    tm local = {};
    (void)localtime_r(&now, &local);
    local.tm_mday -= iDaysBack;
    local.tm_hour = local.tm_min = local.tm_sec = 0;
    local.tm_isdst = -1;
    (void)mktime(&local);
    return local;
}

// "hh:mm[:ss[.mmm]]" up to the end of the text.
bool fs_parseClock(const char* psz, tm* pLocal, long* plMilliseconds)
{
    int iEnd = 0;
    int iMilliseconds = 0;
    pLocal->tm_sec = 0;
    if (sscanf(psz, "%2d:%2d%n", &pLocal->tm_hour, &pLocal->tm_min, &iEnd) < 2)
        return false;
    int iMore = 0;
    if (sscanf(psz + iEnd, ":%2d%n", &pLocal->tm_sec, &iMore) == 1)
        iEnd += iMore;
    if (iMore > 0 && psz[iEnd] == '.' && sscanf(psz + iEnd, ".%3d%n", &iMilliseconds, &iMore) == 1) {
        for (int iDigits = iMore; iDigits < 4; ++iDigits)
            iMilliseconds *= 10;
        iEnd += iMore;
    }
    *plMilliseconds = iMilliseconds;
    const auto within = [](int i, int iMax) { return i >= 0 && i <= iMax; };
    return psz[iEnd] == '\0' && within(pLocal->tm_hour, 23) && within(pLocal->tm_min, 59) &&
           within(pLocal->tm_sec, 60) && iMilliseconds >= 0;
}

bool fs_parseDate(const char* psz, ZEBUTime* plTime)
{
    tm local = {};
    long lMilliseconds = 0;
    char cFirst = 0;
    char cSecond = 0;
    int iEnd = 0;
    if (sscanf(psz, "%4d%c%2d%c%2d%n", &local.tm_year, &cFirst, &local.tm_mon, &cSecond, &local.tm_mday,
               &iEnd) < 5)
        return false;
    if (cFirst != cSecond || (cFirst != '-' && cFirst != '/') || local.tm_year < 1 || local.tm_mon < 1 ||
        local.tm_mon > 12 || local.tm_mday < 1 || local.tm_mday > 31)
        return false;
    local.tm_year -= 1900;
    local.tm_mon -= 1;
    if (psz[iEnd] != '\0') {
        if ((psz[iEnd] != ' ' && psz[iEnd] != 'T') || !fs_parseClock(psz + iEnd + 1, &local, &lMilliseconds))
            return false;
    }
    *plTime = fs_pack(local, lMilliseconds);
    return true;
}
} // namespace

bool ZEBU_ParseDuration(const std::string& strText, long* plSeconds)
{
    static constexpr struct
    {
        const char* pszUnit;
        long lSeconds;
    } units[] = {{"s", 1},       {"sec", 1},   {"m", 60},      {"min", 60},   {"h", 3600},
                 {"hour", 3600}, {"d", 86400}, {"day", 86400}, {"w", 604800}, {"week", 604800}};
    char* pszEnd;
    const long lNumber = strtol(strText.c_str(), &pszEnd, 10);
    if (strText.empty() || strText[0] < '0' || strText[0] > '9')
        return false;
    for (const auto& unit : units) {
        if (std::string(pszEnd) != unit.pszUnit || lNumber > INT_MAX / unit.lSeconds)
            continue;
        *plSeconds = lNumber * unit.lSeconds;
        return true;
    }
    return false;
}

bool ZEBU_ParseWhen(const std::string& strText, ZEBUTime* plTime)
{
    tm local = fs_day(strText == "yesterday" ? 1 : 0);
    long lNumber = 0;
    int iEnd = 0;
    if (strText == "today" || strText == "yesterday")
        return *plTime = fs_pack(local, 0), true;
    if (strText == "now")
        return fs_packSeconds(time(nullptr), 0, plTime);
    if (sscanf(strText.c_str(), "@%ld%n", &lNumber, &iEnd) == 1 && strText[static_cast<size_t>(iEnd)] == '\0')
        return fs_packSeconds(lNumber, 0, plTime);
    if (strText.starts_with('-') && ZEBU_ParseDuration(strText.substr(1), &lNumber))
        return fs_packSeconds(time(nullptr) - lNumber, 0, plTime);
    if (fs_parseDate(strText.c_str(), plTime))
        return true;
    long lMilliseconds = 0;
    if (!fs_parseClock(strText.c_str(), &local, &lMilliseconds))
        return false;
    *plTime = fs_pack(local, lMilliseconds);
    return true;
}
