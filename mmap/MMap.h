// mmap/MMap.h -- the trace area: one file that every process of the host maps, a byte ring behind a
// header. Processes append lines at the write offset, a consumer outside the library advances the read
// offset. A line that does not fit is dropped; unread bytes are never overwritten.
#ifndef ZEBU_MMAP_MMAP_H
#define ZEBU_MMAP_MMAP_H

#include <stddef.h>
#include <stdint.h>
#include <sys/time.h>

#include <atomic>
#include <new>

struct tagZEBU_AREA_HEADER;

enum ZEBUAppend { ZEBU_APPEND_STORED, ZEBU_APPEND_NO_ROOM, ZEBU_APPEND_DAMAGED };

// Appends a line to the ring in `uMapLength` mapped bytes, for any content of its header without
// touching a byte outside them. No room: too little is free, or the guard of the area cannot be had.
// Async-signal-safe.
ZEBUAppend ZEBU_AppendToArea(void* pMap, uint32_t uMapLength, const void* pData, uint32_t uLength);

// Callers hold the process mutex, but for writeToMMapSigSafe. int results: 0, or -1 with the failure
// recorded.
class ZEBUMMapFile final
{
public:
    // Reads the configuration and sets the rate limit from it.
    ZEBUMMapFile();
    // Closes.
    ~ZEBUMMapFile();
    ZEBUMMapFile(const ZEBUMMapFile&) = delete;
    ZEBUMMapFile& operator=(const ZEBUMMapFile&) = delete;

    static void* operator new(size_t uSize) noexcept;
    // Takes one reference off, destroys, and frees the memory only when no reference is left.
    static void operator delete(ZEBUMMapFile* p, std::destroying_delete_t);

    // Creates the area or attaches to it. One whose header is damaged is mapped too; appends to it fail.
    // Fails with 2, 3, 4, 5, 7, 14, 20, 21, 22, 23, or 26 when the configured size holds no area.
    int openFile();

    // Unmaps and closes. Fails with 23, also when signal handlers do not let go of the mapping.
    int closeFile();

    // Appends a line. Length 0 and a line without room are no failures. Fails with 1, 11 or 26.
    int writeToMMap(const void* pData, unsigned int uLength);

    // The same from a signal handler. Failures go to ZEBU2_PutMsgSigSafe_ErrorPos: 1 (also when there is
    // no room), 11; 26 goes to the thread's context if it has one.
    int writeToMMapSigSafe(const void* pData, unsigned int uLength);

    void addRef() { ++iRefCount; }
    void relRef()
    {
        if (iRefCount > 0)
            --iRefCount;
    }
    int refCount() const { return iRefCount; }

    // The configured size of the area file, and of its data.
    static unsigned int getMMapFileSize();
    static unsigned int getMMapDataSize() { return getMMapFileSize() - 24; }

private:
    int openFileObject();
    int checkLockedFile(unsigned int uWanted);
    int readAndCheckHeader();
    int initFileObject(unsigned int uDataSize);
    int fillFile(unsigned int uSize, unsigned int uWanted);
    int mapFile();
    int unmapFile();

    unsigned int uMapLength;
    int iFd;
    std::atomic<void*> pMap; // also read by signal handlers
    int iRefCount;
};

// Opens the area file for reading and writing, made with mode 0666 when missing, following no symbolic
// link. Returns a descriptor, or -1 with a code and a failure number (2, 7 or 20).
int fs_safeOpen(const char* pszPath, int* piCode, int* piPos);

// ---- The rate limit: so many lines for each period ------------------------------------------------

struct tagZEBU_PERIOD_START
{
    std::atomic<long> tv_sec; // also read without the mutex, by every line's header
    long tv_usec;
};

extern timeval fs_zebu_mmap_interval_sec; // length of a period; 0 seconds: no limit
extern unsigned int g_zebu_mmap_output_max;
extern tagZEBU_PERIOD_START fs_zebu_last_update_time;
extern unsigned int fs_zebu_mmap_output_count;

// Sets the limit. An interval outside 0..86400 seconds or a maximum outside 0..1000000 leaves what it was.
void ZEBU_initMMapLimitValues(int iIntervalSec, int iMaxMsgNum);

// 1 when the line of time `pNow` is to be dropped, else 0 and the line is counted.
int fs_isMsgTooMany(const timeval* pNow);

#endif
