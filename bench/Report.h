// bench/Report.h -- the results as text, as a page and as a plot.
#ifndef ZEBU_BENCH_REPORT_H
#define ZEBU_BENCH_REPORT_H

#include <string>
#include <vector>

#include "Groups.h"

// One line: processor, cores, kernel, file system of `dir`, compiler, load.
std::string describeMachine(const std::string& dir);

// The tables as Markdown.
std::string tables(const std::vector<Group>& groups, const std::vector<Growth>& growth,
                   const std::vector<ToolRow>& tool);

// Bars of every path, as a multiple of the work by hand.
std::string plot(const std::vector<Group>& groups);

// Puts `text` between the two marks of a file, and leaves all else of it.
bool replaceBetweenMarks(const std::string& path, const std::string& text);

#endif
