// output/PutMsg.h -- building a trace line's header, and the way into the trace area.
#ifndef ZEBU_OUTPUT_PUTMSG_H
#define ZEBU_OUTPUT_PUTMSG_H

#include <sys/time.h>

#include "frame/TLS.h"
#include "output/LineFormat.h"

// Builds columns 0 to 67 of a line and takes its number from the counter. `pszAppName` and `pszThreadId`
// may be null and then print blanks; a thread id of nine characters brings the blank of column 67 with
// it, under any other the column keeps what it held. `iTickType` 1 masks the time. Stores the line's
// time in `*pTime`. `pTls`: the calling thread's context. Returns 0.
int ZEBU_MakeupTraceMessageHeader(char* pszLine, const char* pszAppName, const char* pszThreadId,
                                  int iTickType, timeval* pTime, tagZEBU_TLS_VAR* pTls);

// Copies a line of time `pTime` into the trace area, unless the rate limit drops it. Returns 0, also when
// there is no area (the failure number becomes 11), or -1 with the area's failure.
int ZEBU_PutMsgToMMap(tagZEBU_TLS_VAR* pTls, const char* pszLine, unsigned long ulLength,
                      const timeval* pTime);

#endif
