// bench/Tool.cpp -- how fast zebu2 shows what was written, and what following costs: through a pipe, as
// whoever collects lines reads them.
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "Groups.h"

namespace {

constexpr long cs_lRings = 16;
constexpr long cs_lBurst = 2000; // lines that a busy ring gets at once

struct Run
{
    double ns;    // from the start to the end of the output
    double cpuNs; // of the tool
    long lLines;
};

} // namespace

// ---- Rings ---------------------------------------------------------------------------------------

static ZEBU2_HINSTANCE openRing(Place& place, const std::string& name)
{
    const std::string prefix = place.path(name);
    const tagZEBU_LOGFILE_SPEC ring = {cs_lBigFile, 2, prefix.c_str()};
    ZEBU2_HINSTANCE hInstance = nullptr;
    if (ZEBU2_CreateInstance(&hInstance, &ring, "bench") != 0) {
        (void)fprintf(stderr, "%s: %08x\n", prefix.c_str(), ZEBU2_GetLastError(nullptr));
        exit(2);
    }
    (void)ZEBU2_SetInstanceShmThreshold(hInstance, ZEBU2_LEVEL_OFF);
    return hInstance;
}

// Lines that come to the rings one after the other.
static void writeRings(Place& place, const std::vector<std::string>& names, long lLines)
{
    std::vector<ZEBU2_HINSTANCE> rings;
    for (const std::string& name : names)
        rings.push_back(openRing(place, name));
    for (long i = 0; i < lLines; ++i)
        (void)ZEBU2_PutInstanceLine(rings[static_cast<size_t>(i) % rings.size()], 0, cs_pszText);
    for (ZEBU2_HINSTANCE hRing : rings)
        (void)ZEBU2_DeleteInstance(hRing);
}

static std::vector<std::string> namesOf(const char* pszName, long lCount)
{
    std::vector<std::string> names;
    for (long i = 0; i < lCount; ++i)
        names.push_back(std::string(pszName) + "-" + std::to_string(i) + "-");
    return names;
}

// ---- The tool ------------------------------------------------------------------------------------

static pid_t start(const Place& place, const std::vector<std::string>& words, int* pOutput)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        exit(2);
    const pid_t tool = fork();
    if (tool == 0) {
        std::vector<char*> arguments;
        for (const std::string& word : words)
            arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        if (dup2(ends[1], STDOUT_FILENO) != STDOUT_FILENO || chdir(place.dir().c_str()) != 0)
            _exit(2);
        execv(ZEBU2_TOOL, arguments.data());
        _exit(2);
    }
    (void)close(ends[1]);
    *pOutput = ends[0];
    return tool;
}

// Reads until the output ends, or until so many lines came.
static long readLines(int iOutput, long lMost)
{
    static char szBlock[65536];
    long lLines = 0;
    for (ssize_t iRead; lLines < lMost && (iRead = read(iOutput, szBlock, sizeof szBlock)) > 0;)
        lLines += std::count(szBlock, szBlock + iRead, '\n');
    return lLines;
}

static double finish(pid_t tool, int iOutput)
{
    rusage used = {};
    (void)close(iOutput);
    (void)wait4(tool, nullptr, 0, &used);
    const auto ns = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_usec) * 1e3;
    };
    return ns(used.ru_utime) + ns(used.ru_stime);
}

static Run show(const Place& place, std::vector<std::string> words, const std::vector<std::string>& sources)
{
    words.insert(words.begin(), {"zebu2", "show"});
    words.insert(words.end(), sources.begin(), sources.end());
    const double begin = nowNs();
    int iOutput;
    const pid_t tool = start(place, words, &iOutput);
    const long lLines = readLines(iOutput, LONG_MAX);
    const double ns = nowNs() - begin;
    return {ns, finish(tool, iOutput), lLines};
}

// Follows a ring that another process fills in bursts, beside sources that stand still.
static Run follow(Place& place, const std::vector<std::string>& idle, long lLines)
{
    ZEBU2_HINSTANCE hBusy = openRing(place, "busy");
    std::vector<std::string> words = {"zebu2", "show", "-f", "-n", "all", "busy"};
    words.insert(words.end(), idle.begin(), idle.end());
    int iOutput;
    const double begin = nowNs();
    const pid_t tool = start(place, words, &iOutput);
    const pid_t writer = fork();
    if (writer == 0) {
        for (long i = 0; i < lLines; ++i) {
            (void)ZEBU2_PutInstanceLine(hBusy, 0, cs_pszText);
            if (i % cs_lBurst == 0)
                (void)usleep(5000);
        }
        _exit(0);
    }
    const long lRead = readLines(iOutput, lLines + static_cast<long>(idle.size()));
    const double ns = nowNs() - begin;
    (void)waitpid(writer, nullptr, 0);
    (void)kill(tool, SIGTERM);
    const double cpuNs = finish(tool, iOutput);
    (void)ZEBU2_DeleteInstance(hBusy);
    (void)unlink(place.path("busy1.log").c_str());
    return {ns, cpuNs, lRead};
}

// ---- The rows ------------------------------------------------------------------------------------

static ToolRow rate(const Place& place, const std::string& what, const std::vector<std::string>& words,
                    const std::vector<std::string>& sources, long lRounds, double goal = 0)
{
    std::vector<double> rates;
    for (long i = 0; i < lRounds; ++i) {
        const Run run = show(place, words, sources);
        rates.push_back(static_cast<double>(run.lLines) / run.ns * 1e9);
    }
    return {what, "lines a second", quartiles(rates), goal, true};
}

static ToolRow lastLines(const Place& place, const std::vector<std::string>& sources, long lRounds,
                         long lBytes)
{
    std::vector<double> times;
    for (long i = 0; i < lRounds; ++i)
        times.push_back(show(place, {"-n", "10"}, sources).ns / 1e6);
    return {"show -n 10 of " + std::to_string(lBytes / 1000000) + " MB", "ms", quartiles(times), 20, false};
}

static ToolRow besideIdle(Place& place, long lRounds, long lLines)
{
    const std::vector<std::string> idle = namesOf("idle", cs_lRings - 1);
    writeRings(place, idle, cs_lRings - 1);
    std::vector<double> ratios;
    for (long i = 0; i < lRounds; ++i) {
        const Run alone = follow(place, {}, lLines);
        const Run beside = follow(place, idle, lLines);
        ratios.push_back(beside.cpuNs / alone.cpuNs);
    }
    return {"show -f of a busy ring beside 15 idle ones", "× the time of the processor alone",
            quartiles(ratios), 1.5, false};
}

std::vector<ToolRow> measureTool(Place& place, long lRounds, long lLines)
{
    const std::vector<std::string> one = {"one"};
    const std::vector<std::string> many = namesOf("ring", cs_lRings);
    writeRings(place, one, lLines);
    writeRings(place, many, lLines);
    const long lBytes = place.size("one1.log");
    std::vector<ToolRow> rows = {
        rate(place, "show", {}, one, lRounds), rate(place, "show -o json", {"-o", "json"}, one, lRounds, 2e6),
        rate(place, "show -r", {"-r"}, one, lRounds),
        rate(place, "show of 16 rings, merged", {}, many, lRounds), lastLines(place, one, lRounds, lBytes)};
    place.clear();
    rows.push_back(besideIdle(place, lRounds, std::min(lLines, 200000L)));
    place.clear();
    return rows;
}
