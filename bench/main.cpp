// bench/main.cpp -- what a put costs, beside its limit, the same work by hand and other loggers.
//
// Usage: zebu_bench [--rounds=N] [--growth=N] [--tool=N] [--tool-lines=N] [--dir=D] [--page=FILE]
// [--plot=FILE]
//                   [--benchmark_...]
// Runs every group for N rounds (201), the growth table and the tool for N rounds (5; 0 leaves them out),
// with files in D, the tool with so many lines (1250000, 200 MB), prints the tables, writes them into a page
// and draws a plot. --benchmark_filter=REGEX chooses groups.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>

#include <fstream>

#include "Groups.h"
#include "Report.h"

namespace {

struct Options
{
    long lRounds = 201;
    long lGrowth = 5;
    long lTool = 5;
    long lToolLines = 1250000;
    std::string dir = "/tmp";
    std::string page;
    std::string plot;
};

} // namespace

static bool take(const char* pszArgument, const char* pszName, std::string* pValue)
{
    const size_t uLength = strlen(pszName);
    if (strncmp(pszArgument, pszName, uLength) != 0)
        return false;
    *pValue = pszArgument + uLength;
    return true;
}

static Options parse(int iCount, char** ppArguments)
{
    Options options;
    for (int i = 1; i < iCount; ++i) {
        std::string number;
        if (take(ppArguments[i], "--rounds=", &number)) {
            options.lRounds = std::max(1L, strtol(number.c_str(), nullptr, 10));
        } else if (take(ppArguments[i], "--growth=", &number)) {
            options.lGrowth = strtol(number.c_str(), nullptr, 10);
        } else if (take(ppArguments[i], "--tool=", &number)) {
            options.lTool = strtol(number.c_str(), nullptr, 10);
        } else if (take(ppArguments[i], "--tool-lines=", &number)) {
            options.lToolLines = std::max(1L, strtol(number.c_str(), nullptr, 10));
        } else if (!take(ppArguments[i], "--dir=", &options.dir) &&
                   !take(ppArguments[i], "--page=", &options.page) &&
                   !take(ppArguments[i], "--plot=", &options.plot)) {
            (void)fprintf(stderr, "%s: unknown argument %s\n", ppArguments[0], ppArguments[i]);
            exit(2);
        }
    }
    return options;
}

// A thousand instances hold a thousand files open.
static void raiseFileLimit()
{
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        (void)setrlimit(RLIMIT_NOFILE, &limit);
    }
}

// One iteration is one round of all rows.
static void runGroup(benchmark::State& state, Group& group, Place& place)
{
    group.begin();
    long lRound = 0;
    for (auto _ : state) {
        for (const std::string& name : group.emptied)
            place.empty(name);
        group.round(lRound++);
    }
    group.end();
    for (const Row& row : group.rows)
        state.counters[row.name] = median(row.rounds);
}

int main(int iCount, char** ppArguments)
{
    benchmark::Initialize(&iCount, ppArguments);
    const Options options = parse(iCount, ppArguments);
    raiseFileLimit();
    Place place(options.dir);
    std::vector<Group> groups;
    addPaths(groups, place);
    addSwitches(groups, place);
    addShared(groups, place); // before any thread is there: its processes are forked
    addThreads(groups, place);
    addPieces(groups, place);
    for (Group& group : groups) {
        benchmark::RegisterBenchmark(
            group.name.c_str(), [&group, &place](benchmark::State& state) { runGroup(state, group, place); })
            ->Iterations(options.lRounds)
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::RunSpecifiedBenchmarks();
    const std::vector<Growth> growth =
        options.lGrowth > 0 ? measureGrowth(place, options.lGrowth) : std::vector<Growth>();
    std::vector<ToolRow> tool;
#ifdef ZEBU2_TOOL
    if (options.lTool > 0)
        tool = measureTool(place, options.lTool, options.lToolLines);
#endif

    const std::string results = "Machine: " + describeMachine(options.dir) +
                                ". Rounds: " + std::to_string(options.lRounds) + ".\n\n" +
                                tables(groups, growth, tool);
    (void)printf("\n%s", results.c_str());
    if (!options.page.empty() && !replaceBetweenMarks(options.page, results)) {
        (void)fprintf(stderr, "%s: no marks for the results in it\n", options.page.c_str());
        return 1;
    }
    if (!options.plot.empty())
        std::ofstream(options.plot) << plot(groups);
    return 0;
}
