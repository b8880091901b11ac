// bench/Switches.cpp -- the put that leaves a full file for the next one.
#include <memory>

#include "Groups.h"

constexpr long cs_lSwitchSize = 262144;
constexpr int cs_iSwitchFiles = 3;

// Fills the current file line by line, as the library fills its own, and times the step to the next.
static double timeHandSwitch(HandRing& ring)
{
    static const char szLine[cs_uHandLine] = {};
    while (!ring.full())
        ring.put(szLine, sizeof szLine);
    const double start = nowNs();
    ring.put(szLine, sizeof szLine);
    return nowNs() - start;
}

namespace {

// Where the library's current file stands, counted as it counts.
struct Position
{
    long lHeader;
    long lSize;
};

} // namespace

static double timeSwitch(Position& position)
{
    for (; position.lSize <= cs_lSwitchSize; position.lSize += static_cast<long>(cs_uHandLine))
        (void)ZEBU2_PutLine(1, cs_pszText);
    const double start = nowNs();
    (void)ZEBU2_PutLine(1, cs_pszText);
    const double stop = nowNs();
    position.lSize = position.lHeader + static_cast<long>(cs_uHandLine);
    return stop - start;
}

static Group singleSwitch(Place& place)
{
    const auto hand = std::make_shared<std::unique_ptr<HandRing>>();
    const auto position = std::make_shared<Position>();
    Group group = {"switch",
                   "switch to the next file of 256 KiB",
                   1,
                   {{Kind::Limit, 1.15}},
                   [&place, hand, position] {
                       place.start(cs_lSwitchSize, cs_iSwitchFiles);
                       route(1, true, false);
                       position->lHeader = position->lSize = place.size("app1.log");
                       *hand =
                           std::make_unique<HandRing>(place.path("hand"), cs_lSwitchSize, cs_iSwitchFiles);
                       for (int i = 0; i < cs_iSwitchFiles; ++i) { // every file is there from now on
                           (void)timeHandSwitch(**hand);
                           (void)timeSwitch(*position);
                       }
                   },
                   [&place, hand] {
                       hand->reset();
                       place.stop();
                   }};
    group.rows.push_back(
        {"its system calls by hand", Kind::Limit, nullptr, [hand] { return timeHandSwitch(**hand); }});
    group.rows.push_back(
        {"ZEBU2_PutLine", Kind::Product, nullptr, [position] { return timeSwitch(*position); }});
    return group;
}

void addSwitches(std::vector<Group>& groups, Place& place)
{
    groups.push_back(singleSwitch(place));
}
