// cleanup/LogCleanupUnix.h -- what log cleanup finds on the file system: the directory scan, the order of its
// files, and the test for locks. Used by the library and its tool: takes no lock of the library and records
// nothing.
#ifndef ZEBU_CLEANUP_LOGCLEANUPUNIX_H
#define ZEBU_CLEANUP_LOGCLEANUPUNIX_H

#include <dirent.h>
#include <limits.h>
#include <stddef.h>

constexpr int ZEBU_PATTERN_MAX = 4096;        // characters of a pattern
constexpr size_t ZEBU_FOUND_PATH_ROOM = 4112; // of a pattern's directory or a path that is looked at
static_assert(ZEBU_FOUND_PATH_ROOM > ZEBU_PATTERN_MAX && ZEBU_FOUND_PATH_ROOM > PATH_MAX);

// Walks the files that match a pattern. The directory is the pattern up to its last "/" as it stands,
// "./" when there is none; the whole pattern is matched against the directory and the name, with no
// flags, so that a wildcard also matches "/" and a leading ".". Directories never match.
class ZEBUFileScan final
{
public:
    // `pszPath` has at most ZEBU_PATTERN_MAX characters and outlives the object.
    explicit ZEBUFileScan(const char* pszPath);
    ~ZEBUFileScan();
    ZEBUFileScan(const ZEBUFileScan&) = delete;
    ZEBUFileScan& operator=(const ZEBUFileScan&) = delete;

    // Opens the directory. Returns 0, or -1 with errno.
    int open();

    // Goes to the next matching file. Returns 1 when there is one, 0 at the end (also when reading the
    // directory fails), -1 with errno when an entry cannot be examined, matching or not: a symbolic link
    // that leads nowhere, a path longer than the kernel takes, or an entry that has just been removed.
    int next();

    // The file that next() found, until the next call.
    const char* path() const { return szPath; }
    long modified() const { return lMtime; } // seconds since the epoch

private:
    void appendName(const char* pszName);

    const char* const pszPattern;
    DIR* pDirectory;
    size_t uDirectory; // length of the directory part of szPath
    long lMtime;
    char szPath[ZEBU_FOUND_PATH_ROOM];
};

struct ZEBUFindFileElement
{
    long lMtime; // seconds since the epoch
    ZEBUFindFileElement* pNext;

    // Stands behind the element in its memory.
    const char* path() const { return reinterpret_cast<const char*>(this + 1); }
};

// The files found for the rule by number. Owns its elements.
struct ZEBUFindFileList
{
    ZEBUFindFileElement* pHead = nullptr;
    int iCount = 0;

    ZEBUFindFileList() = default;
    ~ZEBUFindFileList();
    ZEBUFindFileList(const ZEBUFindFileList&) = delete;
    ZEBUFindFileList& operator=(const ZEBUFindFileList&) = delete;

    // Puts a file in front. Returns false when there is no memory; the file is left out then.
    bool addElement(const char* pszPath, long lMtime);

    // Puts the most recently modified first; of equal times the one that was added later comes first. Times
    // are compared by the 32 bits of their difference.
    void sort();
};

// Whether a file may be removed: it can be opened for reading and writing, through no symbolic link of a
// stranger, and no other process holds a record lock on it. Never waits.
//
// Looking at a file opens and closes it, and closing drops every record lock that the calling process
// itself holds on it. Such a lock does not protect the file: a ring of this process that matches loses
// its current file, and goes on writing into a file without a name. Where the removal then fails, the
// file stays and is no longer locked.
bool ZEBU_IsRemovable(const char* pszPath);

#endif
