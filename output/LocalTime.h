// output/LocalTime.h -- local date and time as text, for lines and file headers.
#ifndef ZEBU_OUTPUT_LOCALTIME_H
#define ZEBU_OUTPUT_LOCALTIME_H

#include <sys/time.h>
#include <time.h>

#include "output/LineFormat.h"
#include "output/ltostr.h"

// What tells the zone that tzset found last, at hand without a call. A zone with the same offset and the same
// name of its summer time differs at most in when that begins and ends.
struct ZEBUZoneMark
{
    long lOffset;
    const char* pszSummerName; // never null once a time was converted

    bool operator==(const ZEBUZoneMark&) const = default;
};

// The local time of the last second that a thread printed, and the zone it was made for; kept because
// converting it takes a lock that all threads of the process share. All zero when new.
struct ZEBUCachedSecond
{
    time_t lSecond;
    ZEBUZoneMark zone;
    char szSecond[ZEBU_SECOND_TEXT]; // "yyyy/mm/dd hh:mm:ss."
};

inline ZEBUZoneMark ZEBU_CurrentZone()
{
    return {timezone, tzname[1]};
}

// Converts a second for the lines to come, once a second for each thread: kept out of the way of all other
// lines. False when there is no local time; `cached` stays as it was then.
[[gnu::noinline, gnu::cold]] bool ZEBU_ConvertSecond(time_t lSecond, ZEBUCachedSecond& cached);

// Writes date and time of `time` in ZEBU_TIME_TEXT columns, hyphens when it cannot be converted. No
// terminator. `cached`: used again for its second, unless tzset found another zone meanwhile.
inline void ZEBU_PutLocalTime(char* pBuf, const timeval& time, ZEBUCachedSecond& cached)
{
    const bool bKnown = cached.lSecond == time.tv_sec && cached.zone == ZEBU_CurrentZone();
    if (!bKnown && !ZEBU_ConvertSecond(time.tv_sec, cached)) [[unlikely]] {
        __builtin_memcpy(pBuf, ZEBU_NO_TIME, ZEBU_TIME_TEXT);
        return;
    }
    __builtin_memcpy(pBuf, cached.szSecond, ZEBU_SECOND_TEXT);
    ZEBU2_IntToStr(pBuf + ZEBU_SECOND_TEXT, static_cast<int>(static_cast<unsigned int>(time.tv_usec) / 1000),
                   3);
}

// The time as it is now, NUL-terminated.
void ZEBU_FormatNow(char (&szTime)[ZEBU_TIME_TEXT + 1]);

// Hold conversions back over a fork. False: the calling thread is in the middle of one.
bool ZEBU_TimeLockForFork();
void ZEBU_TimeUnlock();

#endif
