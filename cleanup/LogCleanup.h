// cleanup/LogCleanup.h -- removal of old trace files by age or by number, behind ZEBU2_LogFileClear.
//
// Functions that return int give 0, or -1 with the failure recorded (function number 0). None takes a
// lock of the library; each call has its own list and buffers.
#ifndef ZEBU_CLEANUP_LOGCLEANUP_H
#define ZEBU_CLEANUP_LOGCLEANUP_H

#include "cleanup/LogCleanupUnix.h"

// Removes every matching file that was last modified at least `iSeconds` ago. Fails with 13, with 20
// where the scan ended, or with 8, after which the scan went on.
int ZEBU_DeleteLogByTime(const char* pszPattern, int iSeconds);

// Removes every matching file but the `iKeep` most recently modified. Fails with 13 or 20, both before
// anything is removed, or with 8, after which the others were removed.
int ZEBU_DeleteLogByNumber(const char* pszPattern, int iKeep);

// The two halves of the rule by number.
int ZEBU_CheckNumberOfFileDelete(const char* pszPattern, ZEBUFindFileList& fileList);
int ZEBU_ExecDeleteLogByNumber(ZEBUFindFileList& fileList, int iKeep);

#endif
