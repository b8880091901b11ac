// output/LocalTime.h -- local date and time as text, for lines and file headers.
#ifndef ZEBU_OUTPUT_LOCALTIME_H
#define ZEBU_OUTPUT_LOCALTIME_H

#include <time.h>

#include "output/LineFormat.h"

struct tagZEBU_TLS_VAR;
struct timeval;

// Writes date and time of `time` in ZEBU_TIME_TEXT columns, hyphens when it cannot be converted. No
// terminator. With a context, the conversion of its last second is used again.
void ZEBU_PutLocalTime(char* pBuf, const timeval& time, tagZEBU_TLS_VAR* pTls);

// The time as it is now, NUL-terminated.
void ZEBU_FormatNow(char (&szTime)[ZEBU_TIME_TEXT + 1]);

// Hold conversions back over a fork.
void ZEBU_TimeLock();
void ZEBU_TimeUnlock();

#endif
