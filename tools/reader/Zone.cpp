#include "tools/reader/Zone.h"

#include <algorithm>
#include <optional>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "output/LineFormat.h"

namespace {
constexpr ZEBUTime cs_lMinute = 100000; // seconds and milliseconds in a packed time
constexpr size_t cs_uZoneMax = ZEBU_TIME_ZONE_WIDTH - 3;

// Whether a text that stands in a file may become the zone: no path that leads out of the folder of zones.
bool fs_isZone(std::string_view svZone)
{
    static constexpr std::string_view svMarks = "+-,./_<>:";
    const auto fits = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               svMarks.find(c) != svMarks.npos;
    };
    return !svZone.empty() && svZone.size() < cs_uZoneMax &&
           std::all_of(svZone.begin(), svZone.end(), fits) && svZone[0] != '/' && svZone[0] != ':' &&
           svZone.find("..") == svZone.npos;
}

// Seconds east of Greenwich, by the zone that is in force.
long fs_offset(ZEBUTime lMinute)
{
    tm local = {};
    local.tm_min = static_cast<int>(lMinute % 100);
    local.tm_hour = static_cast<int>(lMinute / 100 % 100);
    local.tm_mday = static_cast<int>(lMinute / 10000 % 100);
    local.tm_mon = static_cast<int>(lMinute / 1000000 % 100) - 1;
    local.tm_year = static_cast<int>(lMinute / 100000000) - 1900;
    local.tm_isdst = -1;
    (void)mktime(&local);
    return local.tm_gmtoff;
}

void fs_setZone(const std::optional<std::string>& zone)
{
    (void)(zone ? setenv("TZ", zone->c_str(), 1) : unsetenv("TZ"));
    tzset();
}
} // namespace

std::string_view ZEBUZone::text(std::string_view svTime, ZEBUTime lTime, std::string_view svZone)
{
    if (lTime / cs_lMinute != m_lMinute || svZone != m_strZone)
        look(lTime / cs_lMinute, svZone);
    (void)svTime.copy(m_strText.data(), ZEBU_TIME_TEXT);
    m_strText[4] = m_strText[7] = '-';
    m_strText[10] = 'T';
    return m_strText;
}

void ZEBUZone::look(ZEBUTime lMinute, std::string_view svZone)
{
    m_lMinute = lMinute;
    m_strZone = svZone;
    const char* pszOwn = getenv("TZ");
    const std::optional<std::string> own = pszOwn ? std::optional<std::string>(pszOwn) : std::nullopt;
    const bool bForeign = fs_isZone(svZone) && own != m_strZone;
    if (bForeign)
        fs_setZone(m_strZone);
    const long lOffset = fs_offset(lMinute);
    if (bForeign)
        fs_setZone(own);
    char szOffset[16];
    const long lMinutes = labs(lOffset) / 60 % (24L * 60);
    (void)snprintf(szOffset, sizeof szOffset, "%c%02ld:%02ld", lOffset < 0 ? '-' : '+', lMinutes / 60,
                   lMinutes % 60);
    m_strText.assign(ZEBU_TIME_TEXT, ' ').append(szOffset);
}
