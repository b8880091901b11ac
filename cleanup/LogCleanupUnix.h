// cleanup/LogCleanupUnix.h -- what log cleanup does on the file system: the directory scan and the
// removal of one file. No lock of the library is taken.
#ifndef ZEBU_CLEANUP_LOGCLEANUPUNIX_H
#define ZEBU_CLEANUP_LOGCLEANUPUNIX_H

#include <dirent.h>
#include <limits.h>
#include <stddef.h>

constexpr int ZEBU_PATTERN_MAX = 4096;        // characters of a pattern
constexpr size_t ZEBU_FOUND_PATH_ROOM = 4104; // of a pattern's directory or a path that was found
static_assert(ZEBU_FOUND_PATH_ROOM > ZEBU_PATTERN_MAX && ZEBU_FOUND_PATH_ROOM > PATH_MAX);

// Walks the files that match a pattern. The directory is the pattern up to its last "/" as it stands,
// "./" when there is none; the whole pattern is matched against the directory and the name, with no
// flags, so that a wildcard also matches "/" and a leading ".". Directories never match. An entry whose
// path is longer than the kernel takes is passed over.
class ZEBUFileScan final
{
public:
    // `pszPath` has at most ZEBU_PATTERN_MAX characters and outlives the object.
    explicit ZEBUFileScan(const char* pszPath);
    ~ZEBUFileScan();
    ZEBUFileScan(const ZEBUFileScan&) = delete;
    ZEBUFileScan& operator=(const ZEBUFileScan&) = delete;

    // Opens the directory. Returns 0, or -1 and fails with 13.
    int open();

    // Goes to the next matching file. Returns 1 when there is one, 0 at the end (also when reading the
    // directory fails), -1 and fails with 20 when an entry cannot be examined, matching or not: a
    // symbolic link that leads nowhere, or an entry that has just been removed.
    int next();

    // The file that next() found, until the next call.
    const char* path() const { return szPath; }
    long modified() const { return lMtime; } // seconds since the epoch

private:
    bool appendName(const char* pszName);

    const char* const pszPattern;
    DIR* pDirectory;
    size_t uDirectory; // length of the directory part of szPath
    long lMtime;
    char szPath[ZEBU_FOUND_PATH_ROOM];
};

// Removes a file unless it cannot be opened for reading and writing or another process holds a record
// lock on it; both are no failure. Returns 0, or -1 and fails with 8.
//
// Looking at a file opens and closes it, and closing drops every record lock that the calling process
// itself holds on it. Such a lock does not protect the file: a ring of this process that matches loses
// its current file, and goes on writing into a file without a name. Where the removal then fails, the
// file stays and is no longer locked.
int ZEBU_RemoveUnlockedFile(const char* pszPath);

#endif
