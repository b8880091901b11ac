#include "Report.h"

#include <stdarg.h>
#include <stdio.h>
#include <sys/utsname.h>
#include <sys/vfs.h>

#include <cmath>
#include <fstream>
#include <sstream>
#include <thread>

static std::string format(const char* pszFormat, ...) __attribute__((format(printf, 1, 2)));

static std::string format(const char* pszFormat, ...)
{
    char szText[512];
    va_list arguments;
    va_start(arguments, pszFormat);
    (void)vsnprintf(szText, sizeof szText, pszFormat, arguments);
    va_end(arguments);
    return szText;
}

// ---- The machine ---------------------------------------------------------------------------------

static std::string processor()
{
    std::ifstream in("/proc/cpuinfo");
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("model name", 0) == 0)
            return line.substr(line.find(':') + 2);
    }
    return "unknown processor";
}

static std::string fileSystem(const std::string& dir)
{
    struct statfs info;
    if (statfs(dir.c_str(), &info) != 0)
        return "unknown file system";
    switch (info.f_type) {
    case 0xEF53:
        return "ext4";
    case 0x01021994:
        return "tmpfs";
    case 0x58465342:
        return "xfs";
    case 0x9123683E:
        return "btrfs";
    case 0x794C7630:
        return "overlayfs";
    default:
        return format("file system 0x%lX", static_cast<unsigned long>(info.f_type));
    }
}

std::string describeMachine(const std::string& dir)
{
    utsname system = {};
    (void)uname(&system);
    double load = 0;
    std::ifstream("/proc/loadavg") >> load;
    return format("%s, %u cores, Linux %s, %s, compiled by "
#ifdef __clang__
                  "clang %s"
#else
                  "g++ %s"
#endif
                  "; load of the machine when the run ended: %.1f",
                  processor().c_str(), std::thread::hardware_concurrency(), system.release,
                  fileSystem(dir).c_str(), __VERSION__, load);
}

// ---- The tables ----------------------------------------------------------------------------------

static std::string number(double value)
{
    return value < 100 ? format("%.1f", value) : format("%.0f", value);
}

static std::string withQuartiles(const Quartiles& q)
{
    return std::isnan(q.median) ? "–" : format("%.2f (%.2f to %.2f)", q.median, q.low, q.high);
}

static const char* nameOf(Kind kind)
{
    return kind == Kind::Limit ? "the limit" : "by hand";
}

static std::string goalText(const Group& group, const Goal& goal)
{
    if (group.throughput)
        return format("at least %.1f of by hand", 1 / goal.factor);
    std::string text = format("at most %.2f × %s", goal.factor, nameOf(goal.against));
    if (goal.plusRow >= 0)
        text += " + " + group.rows[static_cast<size_t>(goal.plusRow)].name;
    return text;
}

// The library's row names the goal and whether it is met; the share of the goal used tells by how much.
static std::string verdict(const Group& group, const Row& row)
{
    std::string text;
    for (const Goal& goal : group.goals) {
        if (row.kind != Kind::Product)
            continue;
        const Quartiles part = group.ofGoal(goal);
        text += goalText(group, goal) + " | " + (part.median <= 1 ? "met" : "**missed**") +
                format(", %.2f of it", part.median);
    }
    return text.empty() ? " | " : text;
}

static std::string rowText(const Group& group, const Row& row)
{
    const double ns = median(row.rounds);
    const std::string time = group.throughput ? format("%.0f", 1e9 / ns) : number(ns);
    const std::string tail = group.throughput ? "–" : number(percentile(row.single, 0.99));
    std::string text =
        "| " + group.title + " | " + (row.kind == Kind::Product ? "**" + row.name + "**" : row.name);
    text += " | " + time + " | " + tail;
    text += " | " + withQuartiles(group.ratio(row, Kind::Limit));
    text += " | " + withQuartiles(group.ratio(row, Kind::ByHand));
    return text + " | " + verdict(group, row) + " |\n";
}

static std::string table(const std::vector<Group>& groups, bool throughput)
{
    std::string text = throughput ? "| path | row | lines a second" : "| path | row | median ns";
    text += " | p99 ns | × limit (quartiles) | × by hand (quartiles) | goal | |\n";
    text += "|---|---|---:|---:|---:|---:|---|---|\n";
    for (const Group& group : groups) {
        for (const Row& row : group.rows) {
            if (group.throughput == throughput && !group.goals.empty() && !row.rounds.empty())
                text += rowText(group, row);
        }
    }
    return text;
}

static std::string pieces(const std::vector<Group>& groups)
{
    std::string text = "| piece | median ns | p99 ns |\n|---|---:|---:|\n";
    for (const Group& group : groups) {
        for (const Row& row : group.rows) {
            if (group.goals.empty() && !row.rounds.empty())
                text += "| " + row.name + " | " + number(median(row.rounds)) + " | " +
                        number(percentile(row.single, 0.99)) + " |\n";
        }
    }
    return text;
}

static std::string growthTable(const std::vector<Growth>& growth)
{
    std::string text = "| what | size: value |\n|---|---|\n";
    for (const Growth& line : growth) {
        text += std::string("| ") + line.pszWhat + " |";
        for (const auto& [size, ns] : line.sizes)
            text += format(" %ld: %s;", size, number(ns).c_str());
        text.back() = ' ';
        text += "|\n";
    }
    return text;
}

static std::string toolTable(const std::vector<ToolRow>& rows)
{
    std::string text = "| what | median | quartiles | unit | goal | |\n|---|---:|---|---|---|---|\n";
    for (const ToolRow& row : rows) {
        const auto value = [&](double number) { return format(number < 100 ? "%.2f" : "%.0f", number); };
        text += "| " + row.what + " | " + value(row.value.median) + " | " + value(row.value.low) + " to " +
                value(row.value.high) + " | " + row.unit;
        const bool met = row.atLeast ? row.value.median >= row.goal : row.value.median <= row.goal;
        text += row.goal > 0 ? std::string(row.atLeast ? " | at least " : " | at most ") + value(row.goal) +
                                   (met ? " | met |\n" : " | **missed** |\n")
                             : " | | |\n";
    }
    return text;
}

std::string tables(const std::vector<Group>& groups, const std::vector<Growth>& growth,
                   const std::vector<ToolRow>& tool)
{
    std::string text = "### One thread\n\n" + table(groups, false);
    text += "\n### Several threads and processes\n\n" + table(groups, true);
    for (const Group& group : groups) {
        if (group.remark && !group.remark->empty())
            text += "\n" + *group.remark + ".\n";
    }
    text += "\n### Pieces\n\n" + pieces(groups);
    if (!growth.empty())
        text += "\n### Growth\n\n" + growthTable(growth);
    if (!tool.empty())
        text += "\n### The tool\n\n" + toolTable(tool);
    return text;
}

// ---- The plot ------------------------------------------------------------------------------------

// Where an element of the plot stands, in units of the drawing.
constexpr int cs_iLabel = 290, cs_iScale = 230, cs_iBar = 18, cs_iGap = 26, cs_iWidth = 900;

static std::string bar(int iTop, const Group& group)
{
    const Row& product = *group.find(Kind::Product);
    const Goal& goal = group.goals.front();
    const Quartiles q = group.ratio(product, goal.against);
    const double limit = goal.factor * q.median / (group.ofGoal(goal).median * goal.factor);
    const char* pszColour = q.median <= limit ? "#4c8c5a" : "#b5543f";
    std::string text = format("<text x=\"%d\" y=\"%d\" text-anchor=\"end\">%s</text>\n", cs_iLabel - 8,
                              iTop + 14, group.title.c_str());
    text += format("<rect x=\"%d\" y=\"%d\" width=\"%.0f\" height=\"%d\" fill=\"%s\"/>\n", cs_iLabel, iTop,
                   q.median * cs_iScale, cs_iBar, pszColour);
    text += format("<path d=\"M%.1f %dv%d\" stroke=\"#222\" stroke-width=\"2\"/>\n",
                   cs_iLabel + limit * cs_iScale, iTop - 2, cs_iBar + 4);
    text += format("<path d=\"M%.1f %dH%.1f\" stroke=\"#222\"/>\n", cs_iLabel + q.low * cs_iScale,
                   iTop + cs_iBar / 2, cs_iLabel + q.high * cs_iScale);
    text += format("<text x=\"%.0f\" y=\"%d\">%.2f × %s</text>\n",
                   cs_iLabel + std::fmax(q.high, limit) * cs_iScale + 8, iTop + 14, q.median,
                   nameOf(goal.against));
    return text;
}

std::string plot(const std::vector<Group>& groups)
{
    std::string bars;
    int iTop = 50;
    for (const Group& group : groups) {
        if (group.goals.empty() || group.rows.front().rounds.empty())
            continue;
        bars += bar(iTop, group);
        iTop += cs_iGap;
    }
    std::string text =
        format("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" "
               "font-family=\"sans-serif\" font-size=\"13\">\n<rect width=\"100%%\" height=\"100%%\" "
               "fill=\"white\"/>\n",
               cs_iWidth, iTop + 10);
    text +=
        "<text x=\"16\" y=\"24\" font-size=\"15\">Time of a line as a multiple of the row it is held against "
        "(line: quartiles; mark: goal)</text>\n";
    text += format("<path d=\"M%d 40V%d\" stroke=\"#999\" stroke-dasharray=\"3 3\"/>\n",
                   cs_iLabel + cs_iScale, iTop);
    return text + bars + "</svg>\n";
}

// ---- The page ------------------------------------------------------------------------------------

bool replaceBetweenMarks(const std::string& path, const std::string& text)
{
    std::stringstream whole;
    whole << std::ifstream(path).rdbuf();
    std::string page = whole.str();
    static const std::string begin = "<!-- results: begin, written by scripts/bench -->\n";
    static const std::string end = "<!-- results: end -->\n";
    const size_t from = page.find(begin);
    const size_t to = page.find(end);
    if (from == std::string::npos || to == std::string::npos || to < from)
        return false;
    page.replace(from + begin.size(), to - from - begin.size(), "\n" + text + "\n");
    std::ofstream out(path);
    out << page;
    return out.flush().good();
}
