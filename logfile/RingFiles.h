// logfile/RingFiles.h -- what both file engines do with the files of a ring.
//
// Plain functions over plain arguments. Those that return int give 0, or -1 with the failure recorded.
// The caller holds the process mutex.
#ifndef ZEBU_LOGFILE_RINGFILES_H
#define ZEBU_LOGFILE_RINGFILES_H

#include <stddef.h>
#include <sys/stat.h>

// Room for any path that the kernel accepts, and for any name built from a prefix that was accepted.
constexpr size_t ZEBU_PATH_ROOM = 4097;

// Writes "%s%d.log" of prefix and number. Fails with 1 when the prefix is null, the number is outside
// 1..`lCount`, or the name does not fit `szName`.
int ZEBU_TraceFileName(char (&szName)[ZEBU_PATH_ROOM], const char* pszPrefix, long lNumber, long lCount);

// Finds the file of the ring that was modified last (whole seconds; of equals the highest number).
// Returns its number, with its size in `*plSize`, or 0 when no file exists. -1: fails with 1, or with 20 when
// a file cannot be looked at, since that may be the one.
long ZEBU_NewestTraceFile(const char* pszPrefix, long lCount, long* plSize);

// Whether this errno of a look at a file says that no such file is there, not that it could not be seen.
bool ZEBU_IsAbsent(int iErrno);

// Opens a file close-on-exec with `iFlags` (mode 0666 whatever the umask when it is made), and gives it
// the permission bits `iFileAttr` unless that is -1. A symbolic link is followed only when root or the
// caller made it. Never waits. Fails with 2; `*piFd` is then -1.
int ZEBU_OpenFile(int* piFd, const char* pszName, int iFlags, int iFileAttr);

// Opens a regular file for reading in the same way. Returns the descriptor, or -1; records nothing.
int ZEBU_OpenToRead(const char* pszName);

// Makes sure that the directory part of a file's path exists. Missing levels are made with mode 0777
// whatever the umask. Fails with 1 (null), 17 or 21.
int ZEBU_CheckFilePath(const char* pszPath);

// The same for a directory.
int ZEBU_MakeDirectories(const char* pszDirectory);

// Gives a directory that was just made its mode, 0777 whatever the umask, unless something else has taken its
// place.
void ZEBU_OpenNewDirectory(const char* pszDirectory);

// As chmod(2), but follows a symbolic link only when root or the caller made it. Leaves the locks of this
// process on the file alone.
int ZEBU_ChmodTrusted(const char* pszName, int iMode);

// Changes the mode of every file of the ring that exists. Fails with 27 at the first that cannot be.
int ZEBU_ChmodRing(const char* pszPrefix, long lCount, int iMode);

// Fails with 1 when `pszPath` names a file of the ring: copying the ring there would empty it.
int ZEBU_RefuseRingFile(const char* pszPath, const char* pszPrefix, long lCount);

// Gives up the lockf lock on a file, whose position is where it was taken; where that fails, every lock of
// this process on the file. Records nothing.
void ZEBU_Unlock(int iFd);
void ZEBU_DropLocks(int iFd);

// Writes all bytes. Fails with 4, with ENOSPC when a write was short.
int ZEBU_WriteAll(int iFd, const char* pBytes, size_t uLength);

// Copies at most `ulLimit` bytes from one descriptor to another in blocks of 1024. A read that fails ends
// the copy like the end of the file. Fails with 4.
int ZEBU_CopyFile(int iFrom, int iTo, unsigned long ulLimit);

// Reads at most `uRoom` bytes, again when interrupted. As read(2).
long ZEBU_Read(int iFd, char* pBytes, size_t uRoom);

#endif
