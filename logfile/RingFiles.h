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
// Returns its number, with its size in `*plSize`, or 0 when no file exists. -1: fails with 1, or with 2 when
// a file cannot be looked at, since that may be the one.
long ZEBU_NewestTraceFile(const char* pszPrefix, long lCount, long* plSize);

// Changes the mode of every file of the ring that can be looked at. Fails with 27 at the first that cannot be
// changed. `iOpen`: the descriptor of one that is locked, or -1.
int ZEBU_ChmodRing(const char* pszPrefix, long lCount, int iMode, int iOpen = -1);

// ---- Backup

// Opens the file that a ring is copied to with `iFlags`, makes it or empties it, and gives it its mode as
// ZEBU_OpenFile does. Waits like open(2) for the reader of a FIFO. Fails with 2, or with 1 when it is a file
// of the ring or one that `aOwn` (-1: none) shows: the copy would take what it is made of.
int ZEBU_OpenBackup(int* piFd, const char* pszName, int iFlags, int iFileAttr, const char* pszPrefix,
                    long lCount, const int (&aOwn)[2]);

// Opens a file of the ring to be copied to `iBackup`. Returns 1; 0 when there is none or it may not be read;
// or -1 and fails with 2 when it cannot be opened otherwise, and with 1 when it is the backup itself.
int ZEBU_OpenForCopy(int* piFd, const char* pszName, int iBackup);

// How much of an open file is copied at most: its described size, a header and a line, or the blocks that it
// has if these are more. Its holes beyond that are not: others can make such a file for nothing.
unsigned long ZEBU_CopyLimit(int iFd, unsigned long ulFileSize);

#endif
