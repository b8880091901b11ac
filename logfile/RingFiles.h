// logfile/RingFiles.h -- the names of a ring's files, and the ring as a whole, for both file engines.
//
// Plain functions over plain arguments. Those that return int give 0, or -1 with the failure recorded.
// The caller holds the process mutex.
#ifndef ZEBU_LOGFILE_RINGFILES_H
#define ZEBU_LOGFILE_RINGFILES_H

#include "frame/Files.h"

// Writes "%s%d.log" of prefix and number. Fails with 1 when the prefix is null, the number is outside
// 1..`lCount`, or the name does not fit `szName`.
int ZEBU_TraceFileName(char (&szName)[ZEBU_PATH_ROOM], const char* pszPrefix, long lNumber, long lCount);

// Finds the file of the ring that was modified last (whole seconds; of equals the highest number).
// Returns its number, with its size in `*plSize`, or 0 when no file exists. -1: fails with 1, or with 20 when
// a file cannot be looked at, since that may be the one.
long ZEBU_NewestTraceFile(const char* pszPrefix, long lCount, long* plSize);

// Changes the mode of every file of the ring that exists. Fails with 27 at the first that cannot be.
int ZEBU_ChmodRing(const char* pszPrefix, long lCount, int iMode);

// Fails with 1 when `pszPath` names a file of the ring: copying the ring there would empty it.
int ZEBU_RefuseRingFile(const char* pszPath, const char* pszPrefix, long lCount);

#endif
