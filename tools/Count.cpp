#include "tools/Count.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

static constexpr size_t cs_uBarMax = 40;

void ZEBUCount::add(const ZEBURecord& record)
{
    if (record.eKind == ZEBURecordKind::Line)
        ++m_counts[keyOf(record.line)];
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
    ZEBUBody body;
    if (m_eForm == ZEBUForm::Unknown || !ZEBU_CutBody(line.svBody, m_eForm, &body))
        body = ZEBU_ReadBody(line.svBody);
    const std::string_view svKey = m_strKey == "id" ? body.svId : body.svType;
    return svKey.empty() ? "-" : std::string(svKey);
}

void ZEBUCount::print(ZEBUOutput& output) const
{
    std::vector<std::pair<std::string, long>> rows(m_counts.begin(), m_counts.end());
    std::stable_sort(rows.begin(), rows.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    size_t uKeyWidth = 1;
    for (const auto& [strKey, lCount] : rows)
        uKeyWidth = std::max(uKeyWidth, strKey.size());
    for (const auto& [strKey, lCount] : rows) {
        if (output.format() == ZEBUFormat::Json) {
            const nlohmann::ordered_json json = {{m_strKey, strKey}, {"count", lCount}};
            output.write(json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
            continue;
        }
        std::string strCount = std::to_string(lCount);
        strCount.insert(0, strCount.size() < 8 ? 8 - strCount.size() : 0, ' ');
        output.write(strCount + "  ");
        output.writeText(strKey);
        if (output.isTerminal()) {
            const double dShare = static_cast<double>(lCount) / static_cast<double>(rows.front().second);
            const auto uBar = static_cast<size_t>(std::lround(dShare * static_cast<double>(cs_uBarMax)));
            output.write(std::string(uKeyWidth - strKey.size() + 2, ' ') +
                         std::string(std::max<size_t>(uBar, 1), '#'));
        }
        output.write("\n");
    }
}
