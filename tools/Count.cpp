// tools/Count.cpp -- counts lines by what they have in common, and prints the table or the bars.
#include "tools/Count.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>
#include <time.h>
#include <unistd.h>
#include <vector>

#include "tools/When.h"

static constexpr size_t cs_uBarMax = 40;

void ZEBUCount::add(const ZEBURecord& record)
{
    if (record.eKind != ZEBURecordKind::Line)
        return;
    if (m_strKey != "histogram")
        ++m_counts[keyOf(record.line)];
    else if (record.line.lTime != ZEBU_TIME_NONE)
        ++m_minutes[record.line.lTime / 100000];
}

std::string ZEBUCount::keyOf(const ZEBULine& line) const
{
    if (m_strKey == "app")
        return std::string(line.svApp);
    if (m_strKey == "pid")
        return std::to_string(line.uPid);
    if (m_strKey == "tid")
        return std::string(line.svTid);
    if (m_strKey == "minute" || m_strKey == "hour")
        return line.lTime == ZEBU_TIME_NONE
                   ? "-"
                   : std::string(line.svTime.substr(0, m_strKey == "hour" ? 13 : 16));
    const ZEBUBody body = ZEBU_ReadBody(line.svBody, m_eForm);
    const std::string_view svKey = m_strKey == "id" ? body.svId : body.svType;
    return svKey.empty() ? "-" : std::string(svKey);
}

void ZEBUCount::print(ZEBUOutput& output) const
{
    if (m_strKey == "histogram")
        return printHistogram(output);
    std::vector<std::pair<std::string, long>> rows(m_counts.begin(), m_counts.end());
    std::stable_sort(rows.begin(), rows.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    size_t uKeyWidth = 1;
    for (const auto& [strKey, lCount] : rows)
        uKeyWidth = std::max(uKeyWidth, strKey.size());
    for (const auto& [strKey, lCount] : rows)
        printRow(output, strKey, lCount, rows.front().second, uKeyWidth);
}

void ZEBUCount::printRow(ZEBUOutput& output, const std::string& strKey, long lCount, long lMost,
                         size_t uWidth) const
{
    using Json = nlohmann::ordered_json;
    if (output.format() == ZEBUFormat::Json) {
        const Json key = m_strKey == "pid" ? Json(std::stoul(strKey)) : Json(strKey);
        const Json json = {{m_strKey == "histogram" ? "time" : m_strKey, key}, {"count", lCount}};
        return output.writeJson(json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
    }
    const bool bHistogram = m_strKey == "histogram";
    std::string strCount = std::to_string(lCount);
    strCount.insert(0, strCount.size() < 8 ? 8 - strCount.size() : 0, ' ');
    output.write(strCount + "  ");
    output.writeText(strKey);
    if (output.isTerminal() || bHistogram) {
        const double dShare = static_cast<double>(lCount) / static_cast<double>(std::max(lMost, 1L));
        const auto uBar = static_cast<size_t>(std::lround(dShare * static_cast<double>(cs_uBarMax)));
        output.write(std::string(uWidth - strKey.size() + 2, ' ') +
                     std::string(std::max<size_t>(uBar, lCount > 0 ? 1 : 0), '#'));
    }
    output.write("\n");
}

// Rows of equal length in time, also those without a line.
void ZEBUCount::printHistogram(ZEBUOutput& output) const
{
    constexpr long cs_lRowsMax = 50;
    std::map<long, long> minutes; // by minutes since the epoch
    for (const auto& [lTime, lCount] : m_minutes) {
        time_t seconds;
        if (ZEBU_ToSeconds(lTime * 100000, &seconds))
            minutes[seconds / 60] += lCount;
    }
    if (minutes.empty())
        return;
    const auto rows = [&](long lLength) {
        return minutes.rbegin()->first / lLength - minutes.begin()->first / lLength + 1;
    };
    static constexpr long lengths[] = {1, 2, 5, 10, 15, 30, 60, 120, 180, 360, 720, 1440};
    long lLength = *std::find_if(std::begin(lengths), std::end(lengths) - 1,
                                 [&](long l) { return rows(l) <= cs_lRowsMax; });
    while (rows(lLength) > cs_lRowsMax)
        lLength += 1440;
    std::map<long, long> counts;
    for (long l = 0; l < rows(lLength); ++l)
        counts[minutes.begin()->first / lLength + l] = 0;
    for (const auto& [lMinute, lCount] : minutes)
        counts[lMinute / lLength] += lCount;
    long lMost = 0;
    for (const auto& [lRow, lCount] : counts)
        lMost = std::max(lMost, lCount);
    for (const auto& [lRow, lCount] : counts) {
        const time_t begin = lRow * lLength * 60;
        tm local = {};
        char szTime[32] = "";
        if (localtime_r(&begin, &local))
            (void)strftime(szTime, sizeof szTime, "%Y/%m/%d %H:%M", &local);
        printRow(output, szTime, lCount, lMost, 16);
    }
}
