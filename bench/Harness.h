// bench/Harness.h -- groups of rows that are measured side by side.
//
// A group holds one path of the library with its limit (the calls nobody can do without), the same work
// by hand, and other loggers. A round runs a short batch of every row, one after the other, beginning with
// another row each time. What counts is the ratio of two rows within a round: whatever slows the machine
// down for longer than a round slows both. Google Benchmark runs the groups, one iteration a round.
#ifndef ZEBU_BENCH_HARNESS_H
#define ZEBU_BENCH_HARNESS_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

enum class Kind { Limit, ByHand, Product, Peer, Piece };

struct Row
{
    std::string name;
    Kind kind;
    // Does the work that many times.
    std::function<void(long)> run;
    // For a row that times itself: nanoseconds for one time. Then `run` is not used.
    std::function<double()> timeOne = nullptr;

    std::vector<double> rounds = {}; // nanoseconds for one time, of each round
    std::vector<double> single = {}; // the same of single calls, for the tail
};

struct Goal
{
    Kind against;
    double factor;    // at most so many times that row
    int plusRow = -1; // and this row's time on top
};

struct Quartiles
{
    double low, median, high;
};

Quartiles quartiles(std::vector<double> values);
double percentile(std::vector<double> values, double share);
double median(std::vector<double> values);

struct Group
{
    std::string name;  // short, for the command line
    std::string title; // what a reader sees
    long batch;        // times for one round
    std::vector<Goal> goals;
    std::function<void()> begin;
    std::function<void()> end;
    std::vector<Row> rows = {};
    std::vector<std::string> emptied = {};         // files to empty before each round
    std::shared_ptr<std::string> remark = nullptr; // printed under the tables
    bool throughput = false; // of several threads or processes: printed as lines a second

    // Measures all rows once. `lRound` counts from 0.
    void round(long lRound);

    const Row* find(Kind kind) const;
    // The product's ratio to a row of that kind, round by round.
    Quartiles ratio(const Row& row, Kind against) const;
    // The product's time as a part of what the goal allows: met at 1 or less.
    Quartiles ofGoal(const Goal& goal) const;
};

// The time as a count of nanoseconds, at the cost of a few instructions.
double nowNs();

#endif
