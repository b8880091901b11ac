// tools/When.h -- numbers, points in time and lengths of time as a user writes them.
#ifndef ZEBU_TOOLS_WHEN_H
#define ZEBU_TOOLS_WHEN_H

#include <string>
#include <string_view>
#include <time.h>

#include "tools/reader/Line.h"

// Reads a whole number without a sign, decimal or 0x and hexadecimal; the text holds nothing else.
bool ZEBU_ParseNumber(std::string_view svText, unsigned long* pulNumber);
// The same of 32 bits. Throws ZEBUFailure, which calls the text no `pszWhat`.
unsigned ZEBU_Number(const std::string& strText, const char* pszWhat);

// Reads "2026-11-22", "2026-11-22 10:00[:30[.250]]" (also with "/" and "T"), "10:00[:30]" of today, "now",
// "today", "yesterday", "-15min", "15min ago" (any length of time) and "@1795000000", all in local time.
bool ZEBU_ParseWhen(const std::string& strText, ZEBUTime* plTime);

// A point in local time in seconds since the epoch. False for none.
bool ZEBU_ToSeconds(ZEBUTime lTime, time_t* pSeconds);

// The point in time so many seconds earlier; none for none.
ZEBUTime ZEBU_Earlier(ZEBUTime lTime, long lSeconds);

// Reads a length of time such as 7d, 3d12h or "1 hour" in seconds, at most INT_MAX.
bool ZEBU_ParseDuration(std::string_view svText, long* plSeconds);
// The same. Throws ZEBUFailure.
long ZEBU_Duration(const std::string& strText);

#endif
