// tools/When.h -- points in time and lengths of time as a user writes them.
#ifndef ZEBU_TOOLS_WHEN_H
#define ZEBU_TOOLS_WHEN_H

#include <string>

#include "tools/reader/Line.h"

// Reads "2026-11-22", "2026-11-22 10:00[:30[.250]]" (also with "/" and "T"), "10:00[:30]" of today, "now",
// "today", "yesterday", "-15min" (s, min, h, d, w) and "@1795000000", all in local time.
bool ZEBU_ParseWhen(const std::string& strText, ZEBUTime* plTime);

// Reads a length of time such as 7d in seconds.
bool ZEBU_ParseDuration(const std::string& strText, long* plSeconds);

#endif
