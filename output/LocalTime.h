// output/LocalTime.h -- local date and time as text, for lines and file headers.
#ifndef ZEBU_OUTPUT_LOCALTIME_H
#define ZEBU_OUTPUT_LOCALTIME_H

#include <time.h>

#include "output/LineFormat.h"

struct timeval;

// The local time of the last second that a thread printed; kept because converting it takes a lock that all
// threads of the process share. All zero when new.
struct ZEBUCachedSecond
{
    bool bKnown;
    time_t lSecond;
    char szSecond[ZEBU_SECOND_TEXT]; // "yyyy/mm/dd hh:mm:ss."
};

// Writes date and time of `time` in ZEBU_TIME_TEXT columns, hyphens when it cannot be converted. No
// terminator. `pCached` may be null; else the conversion of its second is used again.
void ZEBU_PutLocalTime(char* pBuf, const timeval& time, ZEBUCachedSecond* pCached);

// The time as it is now, NUL-terminated.
void ZEBU_FormatNow(char (&szTime)[ZEBU_TIME_TEXT + 1]);

// Hold conversions back over a fork.
void ZEBU_TimeLock();
void ZEBU_TimeUnlock();

#endif
