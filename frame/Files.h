// frame/Files.h -- what the engines do with a file, a directory or a descriptor of theirs.
//
// Plain functions over plain arguments. Those that return int give 0, or -1 with the failure recorded, unless
// a comment says otherwise. The directories are open to everybody by design: what lies in them may have been
// planted there.
#ifndef ZEBU_FRAME_FILES_H
#define ZEBU_FRAME_FILES_H

#include <stddef.h>

#include "frame/TrustedOpen.h"

// Opens a file of a ring close-on-exec with `iFlags` (mode 0666 whatever the umask when it is made), and
// gives it the permission bits `iFileAttr` unless that is -1. A symbolic link is followed only when root or
// the caller made it, and a FIFO or a device is opened only when it is theirs: another's would take the lines
// away. Never waits. `iDirectory` as in ZEBU_OpenTrusted. Fails with 2; `*piFd` is then -1.
int ZEBU_OpenFile(int* piFd, const char* pszName, int iFlags, int iFileAttr, int iDirectory = AT_FDCWD);

// The same, but records nothing: returns -1 with errno.
int ZEBU_TryOpenFile(int* piFd, const char* pszName, int iFlags, int iFileAttr, int iDirectory = AT_FDCWD);

// Makes sure that the directory part of a file's path exists. Missing levels are made with mode 0777
// whatever the umask. Fails with 1 (null), 17 or 21.
int ZEBU_CheckFilePath(const char* pszPath);

// The same for a directory.
int ZEBU_MakeDirectories(const char* pszDirectory);

// Makes one directory whose parent exists, with mode 0777 whatever the umask. One that another process makes
// at the same time is as good. Fails with 21.
int ZEBU_MakeDirectory(const char* pszDirectory);

// Gives up the lockf lock on a file, whose position is where it was taken; where that fails, every lock of
// this process on the file. Records nothing.
void ZEBU_Unlock(int iFd);
void ZEBU_DropLocks(int iFd);

// Writes all bytes. Fails with 4, with ENOSPC when a write was short.
int ZEBU_WriteAll(int iFd, const char* pBytes, size_t uLength);

// Writes one byte again and again from the position on, which is `lFrom`, up to `lTo`. As above.
int ZEBU_FillFile(int iFd, char cFill, long lFrom, long lTo);

// Copies the first bytes of a file, at most `ulLimit`, in blocks of 1024, and leaves its position alone. A
// read that fails ends the copy like the end of the file. Fails with 4.
int ZEBU_CopyFile(int iFrom, int iTo, unsigned long ulLimit);

// Reads at most `uRoom` bytes, again when interrupted. As read(2).
long ZEBU_Read(int iFd, char* pBytes, size_t uRoom);

// Gives the first bytes of a file their blocks, so that no store into a mapping meets a full disk. Returns 0,
// 1 when the file system cannot reserve, or -1 and fails with 4 when it has no room.
int ZEBU_ReserveBlocks(int iFd, long lLength);

#endif
