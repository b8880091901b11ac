// bench/Paths.cpp -- one thread: each path of a line, beside its limit and the same work by hand.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <string.h>
#include <sys/time.h>
#include <unistd.h>

#include <memory>
#include <string_view>

#include "Empty.h"
#include "Groups.h"

// An object and not a function: its call is laid out in the loops that it is given to.
constexpr auto put = [] { (void)ZEBU2_PutLine(1, cs_pszText); };

// ---- Above the level, and with both destinations off ----------------------------------------------

static Group filtered(Place& place)
{
    Group group = {"filtered",
                   "put above the level",
                   20000,
                   {{Kind::Limit, 2.3}},
                   [&place] {
                       place.start();
                       route(0, true, true);
                   },
                   [&place] { place.stop(); }};
    group.rows.push_back({"an empty call", Kind::Limit, times([] { (void)bench_Empty(1, cs_pszText); })});
    group.rows.push_back({"ZEBU2_PutLine", Kind::Product, times(put)});
    addPeersOff(group, place);
    return group;
}

static Group off(Place& place)
{
    Group group = {"off",
                   "both thresholds off",
                   5000,
                   {{Kind::ByHand, 1.3}},
                   [&place] {
                       place.start();
                       route(1, false, false);
                   },
                   [&place] { place.stop(); }};
    group.rows.push_back({"building the line", Kind::ByHand, times([] {
                              size_t uLength;
                              benchmark::DoNotOptimize(handLine(cs_pszText, Stamp::Clock, &uLength));
                          })});
    group.rows.push_back({"ZEBU2_PutLine", Kind::Product, times(put)});
    return group;
}

// ---- The file ------------------------------------------------------------------------------------

namespace {

struct Files
{
    int iLimitFd = -1;
    std::unique_ptr<HandRing> handRing;
};

} // namespace

static void startFiles(Place& place, Files& files, Stamp stamp, bool bArea)
{
    place.start();
    files.iLimitFd = open(place.path("limit.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    files.handRing = std::make_unique<HandRing>(place.path("hand"), cs_lBigFile, 2);
    route(1, true, bArea);
    (void)ZEBU2_SetTimeStumpMode(stamp == Stamp::Masked ? 1 : 0);
}

static void stopFiles(Place& place, Files& files)
{
    (void)close(files.iLimitFd);
    files.handRing.reset();
    place.stop();
}

static std::string_view handLine(Stamp stamp)
{
    size_t uLength;
    const char* pLine = handLine(cs_pszText, stamp, &uLength);
    return {pLine, uLength};
}

static std::string_view handPut(Files& files, Stamp stamp)
{
    const std::string_view line = handLine(stamp);
    const HandMutex lock;
    files.handRing->put(line.data(), line.size());
    return line;
}

static void handAppend(Place& place, std::string_view line)
{
    const HandMutex lock;
    place.handArea().append(line.data(), static_cast<uint32_t>(line.size()));
}

static void handAppendGuarded(Place& place, std::string_view line)
{
    const HandMutex lock;
    place.handArea().appendGuarded(line.data(), static_cast<uint32_t>(line.size()));
}

// Into the files alone, or into the trace area too.
static Group file(Place& place, const char* pszName, const char* pszTitle, Stamp stamp, bool bArea)
{
    const auto files = std::make_shared<Files>();
    Group group = {pszName,
                   pszTitle,
                   1000,
                   {{Kind::ByHand, bArea ? 1.08 : 1.10}},
                   [&place, files, stamp, bArea] { startFiles(place, *files, stamp, bArea); },
                   [&place, files] { stopFiles(place, *files); }};
    group.emptied = {"limit.log", "hand1.log", "app1.log"};
    group.rows.push_back({"one write(2)", Kind::Limit, [files](long n) {
                              static const char szLine[cs_uHandLine] = {};
                              for (long i = 0; i < n; ++i)
                                  benchmark::DoNotOptimize(write(files->iLimitFd, szLine, sizeof szLine));
                          }});
    const auto toFile = [files, stamp] { return handPut(*files, stamp); };
    const auto toBoth = [&place, toFile] { handAppend(place, toFile()); };
    group.rows.push_back(
        {"by hand", Kind::ByHand, bArea ? drained(&Place::handArea, place, toBoth) : times(toFile)});
    group.rows.push_back(
        {"ZEBU2_PutLine", Kind::Product, bArea ? drained(&Place::area, place, put) : times(put)});
    return group;
}

// ---- The trace area ------------------------------------------------------------------------------

static char cs_szPrepared[cs_uHandLine];
static constexpr char cs_szOwn[] = "by hand, for one process alone";
static constexpr char cs_szSafe[] = "by hand, safe between processes";

static Row clockAndCopy(Place& place)
{
    return {"clock and copy", Kind::Limit, drained(&Place::handArea, place, [&place] {
                timeval now;
                gettimeofday(&now, nullptr);
                benchmark::DoNotOptimize(now);
                place.handArea().append(cs_szPrepared, sizeof cs_szPrepared);
            })};
}

static Row copyAlone(Place& place)
{
    return {"copy", Kind::Limit, drained(&Place::handArea, place, [&place] {
                place.handArea().append(cs_szPrepared, sizeof cs_szPrepared);
            })};
}

static Group area(Place& place, const char* pszName, const char* pszTitle, Stamp stamp, double dFactor)
{
    Group group = {pszName,
                   pszTitle,
                   4000,
                   {{Kind::ByHand, dFactor}},
                   [&place, stamp] {
                       place.start();
                       route(1, false, true);
                       (void)ZEBU2_SetTimeStumpMode(stamp == Stamp::Masked ? 1 : 0);
                   },
                   [&place] { place.stop(); }};
    group.rows.push_back(stamp == Stamp::Clock ? clockAndCopy(place) : copyAlone(place));
    group.rows.push_back({cs_szOwn, Kind::Piece, drained(&Place::handArea, place, [&place, stamp] {
                              handAppend(place, handLine(stamp));
                          })});
    group.rows.push_back({cs_szSafe, Kind::ByHand, drained(&Place::handArea, place, [&place, stamp] {
                              handAppendGuarded(place, handLine(stamp));
                          })});
    group.rows.push_back({"ZEBU2_PutLine", Kind::Product, drained(&Place::area, place, put)});
    return group;
}

static Group signalSafe(Place& place)
{
    Group group = {"sigsafe",
                   "signal-safe put",
                   4000,
                   {{Kind::ByHand, 1.3}},
                   [&place] { place.start(); },
                   [&place] { place.stop(); }};
    group.rows.push_back(copyAlone(place));
    group.rows.push_back({cs_szOwn, Kind::Piece, drained(&Place::handArea, place, [&place] {
                              const std::string_view line = handLine(Stamp::None);
                              place.handArea().append(line.data(), static_cast<uint32_t>(line.size()));
                          })});
    group.rows.push_back({cs_szSafe, Kind::ByHand, drained(&Place::handArea, place, [&place] {
                              const std::string_view line = handLine(Stamp::None);
                              place.handArea().appendGuarded(line.data(), static_cast<uint32_t>(line.size()));
                          })});
    group.rows.push_back({"ZEBU2_PutMsgSigSafe", Kind::Product,
                          drained(&Place::area, place, [] { (void)ZEBU2_PutMsgSigSafe(cs_pszText); })});
    return group;
}

void addPaths(std::vector<Group>& groups, Place& place)
{
    groups.push_back(filtered(place));
    groups.push_back(off(place));
    groups.push_back(file(place, "file", "single ring", Stamp::Clock, false));
    addPeersFile(groups.back(), place);
    groups.push_back(area(place, "area", "trace area, drained", Stamp::Clock, 1.15));
    groups.push_back(file(place, "both", "file and trace area", Stamp::Clock, true));
    groups.push_back(file(place, "file-masked", "single ring, masked time", Stamp::Masked, false));
    groups.push_back(area(place, "area-masked", "trace area, masked time", Stamp::Masked, 1.3));
    groups.push_back(signalSafe(place));
}
