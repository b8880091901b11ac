#include "tools/forward/Lines.h"

#include <stdio.h>
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

std::string ZEBULines::message(const ZEBURecord& record, const ZEBUInput& input)
{
    const ZEBURecords& records = input.records();
    ZEBUMessage message;
    message.svSource = input.name();
    message.svHost = records.host().empty() ? m_strHost : records.host();
    if (record.eKind != ZEBURecordKind::Gap)
        return format(record, records.zone(), message);
    const std::string strLine = fs_lossLine(record.uFilesLost);
    ZEBURecord loss;
    loss.eKind = ZEBURecordKind::Line;
    loss.svBytes = strLine;
    (void)ZEBU_ParseLine(strLine, &loss.line);
    message.iSeverity = cs_iWarning;
    return format(loss, "", message); // in the zone of this program
}

std::string ZEBULines::format(const ZEBURecord& record, std::string_view svZone, ZEBUMessage message)
{
    const ZEBULine& line = record.line;
    const bool bLine = record.eKind == ZEBURecordKind::Line;
    const ZEBUBody body = bLine ? ZEBU_ReadBody(line.svBody, m_options.eForm) : ZEBUBody();
    const std::string strPid = bLine ? std::to_string(line.uPid) : "";
    const std::string strCounter = bLine ? std::to_string(line.iCounter) : "";
    if (message.iSeverity < 0)
        message.iSeverity = m_options.severities.of(body.svType);
    if (bLine && line.lTime != ZEBU_TIME_NONE)
        message.svTime = m_zone.text(line.svTime, line.lTime, svZone);
    message.svApp = line.svApp;
    message.svPid = strPid;
    message.svId = body.svId;
    message.svTid = line.svTid;
    message.svType = body.svType;
    message.svCounter = strCounter;
    message.svText = ZEBU_WithoutLineEnd(record.svBytes);
    return ZEBU_FormatMessage(message, m_options.uMessageMax);
}
