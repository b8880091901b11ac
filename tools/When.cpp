// tools/When.cpp -- the words and numbers of a command line.
#include "tools/When.h"

#include <algorithm>
#include <charconv>
#include <limits.h>
#include <time.h>

#include "tools/Output.h"

namespace {
// False for years that the four columns of a line cannot show.
bool fs_pack(const tm& local, long lMilliseconds, ZEBUTime* plTime)
{
    const long lYear = local.tm_year + 1900L;
    const long lDate = lYear * 10000 + (local.tm_mon + 1) * 100L + local.tm_mday;
    if (lYear < 1 || lYear > 9999)
        return false;
    *plTime =
        ((lDate * 100 + local.tm_hour) * 100 + local.tm_min) * 100000 + local.tm_sec * 1000L + lMilliseconds;
    return true;
}

bool fs_packSeconds(time_t seconds, ZEBUTime* plTime)
{
    tm local;
    return localtime_r(&seconds, &local) && fs_pack(local, 0, plTime);
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

// ".m" to ".mmm", if it stands there. Returns what follows.
const char* fs_takeMilliseconds(const char* psz, long* plMilliseconds)
{
    if (*psz != '.' || psz[1] == '\0')
        return psz;
    ++psz;
    for (long lUnit = 100; lUnit > 0 && *psz >= '0' && *psz <= '9'; lUnit /= 10)
        *plMilliseconds += (*psz++ - '0') * lUnit;
    return psz;
}

// "hh:mm[:ss[.mmm]]" up to the end of the text.
bool fs_parseClock(const char* psz, tm* pLocal, ZEBUTime* plTime)
{
    const char* pszEnd = strptime(psz, "%H:%M", pLocal);
    const char* pszSeconds = pszEnd ? strptime(pszEnd, ":%S", pLocal) : nullptr;
    long lMilliseconds = 0;
    if (pszSeconds)
        pszEnd = fs_takeMilliseconds(pszSeconds, &lMilliseconds);
    return pszEnd && *pszEnd == '\0' && fs_pack(*pLocal, lMilliseconds, plTime);
}

bool fs_parseDate(const char* psz, ZEBUTime* plTime)
{
    tm local = {};
    const char* pszEnd = strptime(psz, "%Y-%m-%d", &local);
    if (!pszEnd)
        pszEnd = strptime(psz, "%Y/%m/%d", &local);
    if (!pszEnd || *pszEnd == '\0')
        return pszEnd && fs_pack(local, 0, plTime);
    return (*pszEnd == ' ' || *pszEnd == 'T') && fs_parseClock(pszEnd + 1, &local, plTime);
}

// A number and a unit at the front of the text, which is left behind them.
bool fs_takeDuration(std::string_view* psvText, long* plSeconds)
{
    static constexpr struct
    {
        std::string_view svUnit;
        long lSeconds;
    } units[] = {{"s", 1},    {"sec", 1},     {"second", 1}, {"m", 60},      {"min", 60},   {"minute", 60},
                 {"h", 3600}, {"hour", 3600}, {"d", 86400},  {"day", 86400}, {"w", 604800}, {"week", 604800}};
    const size_t uUnit = std::min(psvText->find_first_not_of("0123456789"), psvText->size());
    unsigned long ulNumber;
    if (!ZEBU_ParseNumber(psvText->substr(0, uUnit), &ulNumber))
        return false;
    psvText->remove_prefix(uUnit);
    psvText->remove_prefix(psvText->starts_with(' '));
    std::string_view svUnit = psvText->substr(0, psvText->find_first_of(" 0123456789"));
    psvText->remove_prefix(svUnit.size());
    psvText->remove_prefix(psvText->starts_with(' ') && psvText->size() > 1);
    if (svUnit.size() > 1 && svUnit.ends_with('s'))
        svUnit.remove_suffix(1);
    for (const auto& unit : units) {
        if (svUnit != unit.svUnit || ulNumber > static_cast<unsigned long>(INT_MAX / unit.lSeconds))
            continue;
        *plSeconds = static_cast<long>(ulNumber) * unit.lSeconds;
        return true;
    }
    return false;
}
} // namespace

bool ZEBU_ParseNumber(std::string_view svText, unsigned long* pulNumber)
{
    const bool bHex = svText.starts_with("0x") || svText.starts_with("0X");
    const char* pszEnd = svText.data() + svText.size();
    const auto result = std::from_chars(svText.data() + (bHex ? 2 : 0), pszEnd, *pulNumber, bHex ? 16 : 10);
    return result.ec == std::errc() && result.ptr == pszEnd;
}

unsigned ZEBU_Number(const std::string& strText, const char* pszWhat)
{
    unsigned long ulNumber;
    if (!ZEBU_ParseNumber(strText, &ulNumber) || ulNumber > UINT_MAX)
        throw ZEBUFailure{"\"" + strText + "\" is no " + pszWhat};
    return static_cast<unsigned>(ulNumber);
}

bool ZEBU_ToSeconds(ZEBUTime lTime, time_t* pSeconds)
{
    const auto cut = [&](long lUnit, int iDigits) { return static_cast<int>(lTime / lUnit % iDigits); };
    tm local = {};
    local.tm_year = cut(10000000000000, 10000) - 1900;
    local.tm_mon = cut(100000000000, 100) - 1;
    local.tm_mday = cut(1000000000, 100);
    local.tm_hour = cut(10000000, 100);
    local.tm_min = cut(100000, 100);
    local.tm_sec = cut(1000, 100);
    local.tm_isdst = -1;
    *pSeconds = lTime == ZEBU_TIME_NONE ? -1 : mktime(&local);
    return *pSeconds != -1;
}

ZEBUTime ZEBU_Earlier(ZEBUTime lTime, long lSeconds)
{
    time_t seconds;
    ZEBUTime lEarlier = ZEBU_TIME_NONE;
    return ZEBU_ToSeconds(lTime, &seconds) && fs_packSeconds(seconds - lSeconds, &lEarlier) ? lEarlier
                                                                                            : ZEBU_TIME_NONE;
}

bool ZEBU_ParseDuration(std::string_view svText, long* plSeconds)
{
    *plSeconds = 0;
    do {
        long lPart;
        if (!fs_takeDuration(&svText, &lPart))
            return false;
        *plSeconds += lPart;
        if (*plSeconds > INT_MAX)
            return false;
    } while (!svText.empty());
    return true;
}

long ZEBU_Duration(const std::string& strText)
{
    long lSeconds;
    if (!ZEBU_ParseDuration(strText, &lSeconds))
        throw ZEBUFailure{"\"" + strText + "\" is no length of time such as 90s, 30min, 12h or 7d"};
    return lSeconds;
}

bool ZEBU_ParseWhen(const std::string& strText, ZEBUTime* plTime)
{
    static constexpr std::string_view svAgo = " ago";
    const std::string_view svText = strText;
    const bool bAgo = svText.ends_with(svAgo);
    tm local = fs_day(strText == "yesterday" ? 1 : 0);
    long lSeconds;
    unsigned long ulSeconds;
    if (strText == "today" || strText == "yesterday")
        return fs_pack(local, 0, plTime);
    if (strText == "now")
        return fs_packSeconds(time(nullptr), plTime);
    if (svText.starts_with('@') && ZEBU_ParseNumber(svText.substr(1), &ulSeconds))
        return ulSeconds <= LONG_MAX && fs_packSeconds(static_cast<time_t>(ulSeconds), plTime);
    if (bAgo || svText.starts_with('-'))
        return ZEBU_ParseDuration(bAgo ? svText.substr(0, svText.size() - svAgo.size()) : svText.substr(1),
                                  &lSeconds) &&
               fs_packSeconds(time(nullptr) - lSeconds, plTime);
    return fs_parseDate(strText.c_str(), plTime) || fs_parseClock(strText.c_str(), &local, plTime);
}
