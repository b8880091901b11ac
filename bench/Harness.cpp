#include "Harness.h"

#include <time.h>

#include <algorithm>
#include <cmath>

double percentile(std::vector<double> values, double share)
{
    if (values.empty())
        return NAN;
    const auto at = static_cast<long>(share * static_cast<double>(values.size() - 1) + 0.5);
    std::nth_element(values.begin(), values.begin() + at, values.end());
    return values[static_cast<size_t>(at)];
}

double median(std::vector<double> values)
{
    return percentile(std::move(values), 0.5);
}

Quartiles quartiles(std::vector<double> values)
{
    return {percentile(values, 0.25), percentile(values, 0.5), percentile(values, 0.75)};
}

static double clockNs()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// The processor's counter, or what comes near it.
static uint64_t ticks()
{
#ifdef __x86_64__
    return __builtin_ia32_rdtsc();
#else
    return static_cast<uint64_t>(clockNs());
#endif
}

// Nanoseconds for one tick of the processor's counter, taken over a tenth of a second.
static double tickLength()
{
    const double start = clockNs();
    const auto startTicks = ticks();
    double stop;
    while ((stop = clockNs()) - start < 1e8)
        ;
    return (stop - start) / static_cast<double>(ticks() - startTicks);
}

double nowNs()
{
    static const double tick = tickLength();
    return static_cast<double>(ticks()) * tick;
}

static void measure(const Group& group, Row& row)
{
    if (row.timeOne) {
        row.rounds.push_back(row.timeOne());
        row.single.push_back(row.rounds.back());
        return;
    }
    row.run(std::max(1L, group.batch / 20)); // what the row before pushed out of the caches comes back
    const double start = nowNs();
    row.run(group.batch);
    row.rounds.push_back((nowNs() - start) / static_cast<double>(group.batch));
    for (long i = 0; !group.throughput && i < std::min(group.batch, 64L); ++i) {
        const double one = nowNs();
        row.run(1);
        row.single.push_back(nowNs() - one);
    }
}

void Group::round(long lRound)
{
    const auto first = static_cast<size_t>(lRound);
    for (size_t i = 0; i < rows.size(); ++i)
        measure(*this, rows[(first + i) % rows.size()]);
}

const Row* Group::find(Kind kind) const
{
    const auto found =
        std::find_if(rows.begin(), rows.end(), [kind](const Row& row) { return row.kind == kind; });
    return found == rows.end() ? nullptr : &*found;
}

Quartiles Group::ratio(const Row& row, Kind against) const
{
    const Row* base = find(against);
    std::vector<double> ratios;
    for (size_t i = 0; base && i < row.rounds.size(); ++i)
        ratios.push_back(row.rounds[i] / base->rounds[i]);
    return quartiles(ratios);
}

Quartiles Group::ofGoal(const Goal& goal) const
{
    const Row* product = find(Kind::Product);
    const Row* base = find(goal.against);
    std::vector<double> parts;
    for (size_t i = 0; i < product->rounds.size(); ++i) {
        double allowed = goal.factor * base->rounds[i];
        if (goal.plusRow >= 0)
            allowed += rows[static_cast<size_t>(goal.plusRow)].rounds[i];
        parts.push_back(product->rounds[i] / allowed);
    }
    return quartiles(parts);
}
