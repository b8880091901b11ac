// frame/TrustedOpen.h -- opening files, and changing their mode, where others may have planted symbolic
// links.
//
// A leaf, used by the library and its tool: nothing is recorded. Functions that return int give -1 with
// errno. A link is followed only when root or the caller made it (ELOOP otherwise), or when it is one of the
// process file system, which stands for an open file. No descriptor is a standard one.
#ifndef ZEBU_FRAME_TRUSTEDOPEN_H
#define ZEBU_FRAME_TRUSTEDOPEN_H

#include <fcntl.h>
#include <stddef.h>

// Room for any path that the kernel accepts, and for any name built from a prefix that was accepted.
constexpr size_t ZEBU_PATH_ROOM = 4097;

// Whether this errno of a look at a file says that no such file is there, not that it could not be seen.
bool ZEBU_IsAbsent(int iErrno);

// The same, or that it may not be opened.
bool ZEBU_IsOutOfReach(int iErrno);

// As open(2), close-on-exec, with mode 0666 for what is made. `*pbMade` becomes true when the file was made.
// `iDirectory`: where a name without a slash at its front starts, as in openat(2).
int ZEBU_OpenTrusted(const char* pszName, int iFlags, bool* pbMade, int iDirectory = AT_FDCWD);

// Opens a directory for the other functions here to start from (O_PATH).
int ZEBU_OpenDirectory(const char* pszName);

// Opens a regular file for reading and never waits. Another kind of file is taken for absent.
int ZEBU_OpenToRead(const char* pszName);

// As chmod(2). The locks of this process on the file stay: `iOpen` is a descriptor that must not be closed,
// or -1, and is used where the file is its.
int ZEBU_ChmodTrusted(const char* pszName, int iMode, int iOpen = -1);

// The same for a name that is no link; ELOOP when it is one.
int ZEBU_ChmodNoFollow(const char* pszName, int iMode, int iOpen = -1);

#endif
