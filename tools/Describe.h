// tools/Describe.h -- what state a ring, a file or the trace area is in, as facts for stat and ls.
#ifndef ZEBU_TOOLS_DESCRIBE_H
#define ZEBU_TOOLS_DESCRIBE_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/reader/Line.h"

struct ZEBUDescription
{
    nlohmann::ordered_json facts = nlohmann::ordered_json::object(); // in the order in which they are shown
    std::vector<std::string> warnings;                               // what is wrong
    std::vector<std::string> modes;                                  // what is open to everybody
    ZEBUTime lOldest = ZEBU_TIME_NONE;
    ZEBUTime lNewest = ZEBU_TIME_NONE;
};

// Throws ZEBUFailure for what cannot be read at all.
ZEBUDescription ZEBU_DescribeArea(const std::string& strPath);
ZEBUDescription ZEBU_DescribeSource(const std::string& strSource);

#endif
