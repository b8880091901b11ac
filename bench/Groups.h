// bench/Groups.h -- the groups of the benchmark.
#ifndef ZEBU_BENCH_GROUPS_H
#define ZEBU_BENCH_GROUPS_H

#include <vector>

#include "Harness.h"
#include "Place.h"

// Work that is done n times by calling `once` so often, without a call through a pointer between.
template <class Once>
std::function<void(long)> times(Once once)
{
    return [once](long n) {
        for (long i = 0; i < n; ++i)
            once();
    };
}

// The same, emptying an area before it is full.
template <class Once>
std::function<void(long)> drained(HandArea& (Place::*pArea)(), Place& place, Once once)
{
    return [pArea, &place, once](long n) {
        HandArea& area = (place.*pArea)();
        constexpr long lLines = cs_uAreaSize / cs_uHandLine * 2 / 3;
        for (long i = 0; i < n; ++i) {
            if (i % lLines == 0)
                area.drain();
            once();
        }
    };
}

void addPaths(std::vector<Group>& groups, Place& place);    // one thread, one group for each path
void addSwitches(std::vector<Group>& groups, Place& place); // moving on to the next file
void addThreads(std::vector<Group>& groups, Place& place);  // several threads
void addShared(std::vector<Group>& groups, Place& place);   // rings of several processes
void addPieces(std::vector<Group>& groups, Place& place);   // what a put is made of

// Other loggers, as far as they were found: into the groups of the same durability.
void addPeersOff(Group& group, Place& place);
void addPeersFile(Group& group, Place& place);
void addPeersShared(Group& group, Place& place);

// One line of the growth table: nanoseconds at each size.
struct Growth
{
    const char* pszWhat;
    std::vector<std::pair<long, double>> sizes;
};
std::vector<Growth> measureGrowth(Place& place, long lRounds);

// One line of the table of the tool.
struct ToolRow
{
    std::string what;
    std::string unit;
    Quartiles value;
    double goal; // 0 for none
    bool atLeast;
};
// `lLines`: of 170 bytes, that are shown.
std::vector<ToolRow> measureTool(Place& place, long lRounds, long lLines);

#endif
