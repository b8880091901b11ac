#include "tools/forward/Lines.h"

#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include "output/LineFormat.h"

namespace {
constexpr int cs_iWarning = 4;
constexpr char cs_szOwnName[] = "zebu2-forward";
constexpr char cs_szLossId[] = "LOST";

std::string fs_hostName()
{
    char szName[256] = "";
    (void)gethostname(szName, sizeof szName - 1);
    return szName;
}

// A time of a line as RFC 3339 has it, with the offset that the zone of this process had then. Empty without
// one.
std::string fs_time(ZEBUTime lTime)
{
    if (lTime == ZEBU_TIME_NONE)
        return "";
    const auto digits = [&](long lUnit, long lCount) { return static_cast<int>(lTime / lUnit % lCount); };
    tm local = {};
    local.tm_year = digits(10'000'000'000'000, 10'000) - 1900;
    local.tm_mon = digits(100'000'000'000, 100) - 1;
    local.tm_mday = digits(1'000'000'000, 100);
    local.tm_hour = digits(10'000'000, 100);
    local.tm_min = digits(100'000, 100);
    local.tm_sec = digits(1000, 100);
    tm known = local;
    known.tm_isdst = -1;
    (void)mktime(&known);
    const long lMinutes = known.tm_gmtoff / 60;
    char szTime[64] = "";
    const size_t uLength = strftime(szTime, sizeof szTime, "%Y-%m-%dT%H:%M:%S", &local);
    (void)snprintf(szTime + uLength, sizeof szTime - uLength, ".%03d%c%02ld:%02ld", digits(1, 1000),
                   lMinutes < 0 ? '-' : '+', labs(lMinutes) / 60, labs(lMinutes) % 60);
    return szTime;
}

// A trace line of this program's own, for what reads the lines at the server.
std::string fs_lossLine(unsigned uFiles)
{
    timespec now = {};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    (void)localtime_r(&now.tv_sec, &local);
    char szTime[ZEBU_TIME_TEXT + 1] = "";
    (void)strftime(szTime, sizeof szTime, "%Y/%m/%d %H:%M:%S.", &local);
    char szLine[256];
    (void)snprintf(szLine, sizeof szLine,
                   "0000 %s%03ld     %-*s %08X %08X %-*s lines of at least %u files are missing here", szTime,
                   now.tv_nsec / 1'000'000, ZEBU_APP_NAME, cs_szOwnName, static_cast<unsigned>(getpid()), 0u,
                   ZEBU_ID_WIDTH, cs_szLossId, uFiles);
    return szLine;
}
} // namespace

ZEBULines::ZEBULines(const ZEBULineOptions& options) : m_options(options), m_strHost(fs_hostName()) {}

std::string ZEBULines::message(const ZEBURecord& record, const ZEBUInput& input) const
{
    ZEBUMessage message;
    message.svSource = input.name();
    message.svHost = m_strHost;
    if (record.eKind != ZEBURecordKind::Gap)
        return format(record, message);
    const std::string strLine = fs_lossLine(record.uFilesLost);
    ZEBURecord loss;
    loss.eKind = ZEBURecordKind::Line;
    loss.svBytes = strLine;
    (void)ZEBU_ParseLine(strLine, &loss.line);
    message.iSeverity = cs_iWarning;
    return format(loss, message);
}

std::string ZEBULines::format(const ZEBURecord& record, ZEBUMessage message) const
{
    const ZEBULine& line = record.line;
    const bool bLine = record.eKind == ZEBURecordKind::Line;
    ZEBUBody body;
    if (bLine && (m_options.eForm == ZEBUForm::Unknown || !ZEBU_CutBody(line.svBody, m_options.eForm, &body)))
        body = ZEBU_ReadBody(line.svBody);
    const std::string strTime = fs_time(bLine ? line.lTime : record.lTime);
    const std::string strPid = bLine ? std::to_string(line.uPid) : "";
    const std::string strCounter = bLine ? std::to_string(line.iCounter) : "";
    if (message.iSeverity < 0)
        message.iSeverity = m_options.severities.of(body.svType);
    message.svTime = strTime;
    message.svApp = line.svApp;
    message.svPid = strPid;
    message.svId = body.svId;
    message.svTid = line.svTid;
    message.svType = body.svType;
    message.svCounter = strCounter;
    message.svText = ZEBU_WithoutLineEnd(record.svBytes);
    return ZEBU_FormatMessage(message, m_options.uMessageMax);
}
