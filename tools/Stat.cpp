// tools/Stat.cpp -- describes rings, files and the trace area: for eyes, for programs and for monitoring.
#include <algorithm>
#include <errno.h>
#include <limits.h>
#include <optional>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "tools/Describe.h"
#include "tools/reader/Directory.h"
#include "tools/Verbs.h"
#include "tools/When.h"
#include "ZEBULib2.h"

using Json = nlohmann::ordered_json;

namespace {
std::string fs_dump(const Json& value)
{
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string fs_text(const Json& value)
{
    return value.is_string() ? value.get<std::string>() : value.is_null() ? "-" : fs_dump(value);
}

// ---- Limits --------------------------------------------------------------------------------------

// Seconds since then; nothing for no time.
std::optional<long> fs_age(ZEBUTime lTime)
{
    time_t seconds;
    return ZEBU_ToSeconds(lTime, &seconds) ? std::optional<long>(time(nullptr) - seconds) : std::nullopt;
}

// The lengths of time are parsed whatever there is to compare them with: a limit that is none is refused.
void fs_checkLimits(const ZEBUStatOptions& options, ZEBUDescription* pDescription)
{
    const std::optional<long> newest = fs_age(pDescription->lNewest);
    const std::optional<long> oldest = fs_age(pDescription->lOldest);
    const auto warn = [&](const std::string& strText) { pDescription->warnings.push_back(strText); };
    const long lMaxAge = options.strMaxAge.empty() ? LONG_MAX : ZEBU_Duration(options.strMaxAge);
    const long lMinReach = options.strMinReach.empty() ? LONG_MIN : ZEBU_Duration(options.strMinReach);
    const bool bAges = !options.strMaxAge.empty() || !options.strMinReach.empty();
    if (bAges && !options.bArea && !newest)
        warn("there is no line with a time");
    if (newest && *newest > lMaxAge)
        warn("the newest line is " + std::to_string(*newest) + " seconds old");
    if (oldest && *oldest < lMinReach)
        warn("the oldest line is only " + std::to_string(*oldest) + " seconds old");
    if (options.iMaxFill >= 0 && pDescription->facts.value("fill_percent", 0) > options.iMaxFill)
        warn("filled to " + fs_text(pDescription->facts["fill_percent"]) + " percent");
}

// ---- Formats -------------------------------------------------------------------------------------

void fs_printText(ZEBUOutput& output, const Json& facts)
{
    const auto line = [&](const std::string& strName, const std::string& strText) {
        output.write(strName + std::string(strName.size() < 17 ? 17 - strName.size() : 1, ' '));
        output.writeText(strText);
        output.write("\n");
    };
    for (const auto& [strKey, value] : facts.items()) {
        if (!value.is_array())
            line(strKey, fs_text(value));
        for (const Json& element : value.is_array() ? value : Json::array()) {
            std::string strText = element.is_string() ? fs_text(element) : "";
            for (const auto& [strName, field] : element.items())
                strText += element.is_string()
                               ? ""
                               : (strName == "path" ? "" : "  " + strName + " ") + fs_text(field);
            line(strKey == "files" ? "file" : "warning", strText);
        }
    }
}

struct Metric
{
    const char* pszFact;
    const char* pszHelp;
};
constexpr Metric cs_metrics[] = {{"lines", "Lines in the source."},
                                 {"oldest_seconds", "Time of the oldest line, seconds since the epoch."},
                                 {"newest_seconds", "Time of the newest line, seconds since the epoch."},
                                 {"fill_percent", "How far the current file or the trace area is filled."},
                                 {"data_size", "Bytes that the trace area holds."},
                                 {"unread", "Bytes of the trace area that wait for the consumer."},
                                 {"drained", "Whether a process drains the trace area."},
                                 {"warnings", "Number of things that are wrong."}};

// A metric as a number; null when the source does not have it.
Json fs_value(const ZEBUDescription& description, std::string_view svFact)
{
    time_t seconds;
    if (svFact == "oldest_seconds" || svFact == "newest_seconds") {
        const ZEBUTime lTime = svFact == "oldest_seconds" ? description.lOldest : description.lNewest;
        return ZEBU_ToSeconds(lTime, &seconds) ? Json(seconds) : Json();
    }
    const Json value = description.facts.value(svFact, Json());
    if (value.is_array())
        return value.size();
    if (value.is_boolean())
        return value.get<bool>() ? 1 : 0;
    return value.is_number() ? value : Json();
}

// The names that a sample carries.
std::string fs_labels(const Json& facts)
{
    std::string strSource;
    for (const char c : fs_text(facts[facts.contains("name") ? "name" : "path"])) {
        strSource += c == '"' || c == '\\' || c == '\n' ? "\\" : "";
        strSource += c == '\n' ? 'n' : c;
    }
    return "{source=\"" + strSource + "\",kind=\"" + fs_text(facts["kind"]) + "\"}";
}

// The text format that Prometheus reads: all samples of a metric together.
void fs_printPrometheus(ZEBUOutput& output, const std::vector<ZEBUDescription>& descriptions)
{
    for (const Metric& metric : cs_metrics) {
        const std::string strName = std::string("zebu2_") + metric.pszFact;
        std::string strText = "# HELP " + strName + " ";
        strText.append(metric.pszHelp).append("\n# TYPE ").append(strName).append(" gauge\n");
        const size_t uHeader = strText.size();
        for (const ZEBUDescription& description : descriptions) {
            const Json value = fs_value(description, metric.pszFact);
            if (!value.is_null())
                strText += strName + fs_labels(description.facts) + " " + fs_dump(value) + "\n";
        }
        if (strText.size() > uHeader)
            output.write(strText);
    }
}

void fs_print(const ZEBUStatOptions& options, const std::vector<ZEBUDescription>& descriptions)
{
    ZEBUOutput output(options.eFormat, ZEBUColor::Never);
    if (options.eFormat == ZEBUFormat::Prometheus)
        fs_printPrometheus(output, descriptions);
    for (const ZEBUDescription& description : descriptions) {
        if (options.eFormat == ZEBUFormat::Prometheus)
            break;
        if (options.eFormat == ZEBUFormat::Json)
            output.writeJson(fs_dump(description.facts) + "\n");
        else
            fs_printText(output, description.facts);
        if (options.eFormat == ZEBUFormat::Text && &description != &descriptions.back())
            output.write("\n");
    }
    output.flush();
}

// What a list tells of a ring.
Json fs_row(const std::string& strRing)
{
    const Json facts = ZEBU_DescribeSource(strRing).facts;
    long lSize = 0;
    for (const Json& file : facts["files"])
        lSize += file["size"].get<long>();
    return {{"ring", strRing},
            {"kind", facts["kind"]},
            {"files", facts["files"].size()},
            {"size", lSize},
            {"fill_percent", facts.value("fill_percent", Json())},
            {"writers", facts["writers"]},
            {"oldest", facts["oldest"]},
            {"newest", facts["newest"]}};
}

void fs_printRow(ZEBUOutput& output, const Json& row)
{
    const bool bShared = row["kind"] == "shared ring";
    const std::string strFill = fs_text(row["fill_percent"]) + (bShared ? "%" : "");
    char szRow[160];
    (void)snprintf(szRow, sizeof szRow, "%-7s %5s %9s %5s %7s  %-24s %-24s ", bShared ? "shared" : "single",
                   fs_text(row["files"]).c_str(), fs_text(row["size"]).c_str(), strFill.c_str(),
                   fs_text(row["writers"]).c_str(), fs_text(row["oldest"]).c_str(),
                   fs_text(row["newest"]).c_str());
    output.write(szRow);
    output.writeText(fs_text(row["ring"]));
    output.write("\n");
}
} // namespace

int ZEBU_Stat(const ZEBUStatOptions& options)
{
    std::vector<ZEBUDescription> descriptions;
    bool bFailed = false;
    bool bWarned = false;
    if (options.bArea)
        descriptions.push_back(
            ZEBU_DescribeArea(options.strArea.empty() ? ZEBU_ConfiguredArea() : options.strArea));
    for (const std::string& strSource : ZEBU_WithoutDirectories(options.sources)) {
        try {
            descriptions.push_back(ZEBU_DescribeSource(strSource));
        } catch (const ZEBUFailure& failure) {
            ZEBU_Say(failure.strText);
            bFailed = true;
        }
    }
    for (ZEBUDescription& description : descriptions) {
        if (options.bModes)
            description.warnings.insert(description.warnings.end(), description.modes.begin(),
                                        description.modes.end());
        fs_checkLimits(options, &description);
        bWarned = bWarned || !description.warnings.empty();
        description.facts["warnings"] = description.warnings;
    }
    fs_print(options, descriptions);
    if (bFailed)
        return ZEBU_EXIT_ERROR;
    const bool bLimits = !options.strMaxAge.empty() || !options.strMinReach.empty() || options.iMaxFill >= 0;
    return (options.bCheck || bLimits) && bWarned ? ZEBU_EXIT_NOTHING : ZEBU_EXIT_OK;
}

int ZEBU_List(const ZEBUListOptions& options)
{
    ZEBUOutput output(options.eFormat, ZEBUColor::Never);
    const std::string strDirectory = options.strDirectory.empty() ? "." : options.strDirectory;
    if (access((strDirectory + "/.").c_str(), R_OK) != 0)
        throw ZEBUFailure{strDirectory + ": " + strerror(errno)};
    const std::vector<std::string> rings = ZEBU_RingsIn(strDirectory);
    bool bFailed = false;
    if (options.eFormat == ZEBUFormat::Text && !rings.empty())
        output.write("KIND    FILES      SIZE  FILL WRITERS  OLDEST                   NEWEST                 "
                     "  RING\n");
    for (const std::string& strRing : rings) {
        try {
            const Json row = fs_row(strRing);
            if (options.eFormat == ZEBUFormat::Json)
                output.writeJson(fs_dump(row) + "\n");
            else
                fs_printRow(output, row);
        } catch (const ZEBUFailure& failure) {
            ZEBU_Say(failure.strText);
            bFailed = true;
        }
    }
    output.flush();
    return bFailed ? ZEBU_EXIT_ERROR : rings.empty() ? ZEBU_EXIT_NOTHING : ZEBU_EXIT_OK;
}
