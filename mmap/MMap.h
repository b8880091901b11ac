// mmap/MMap.h -- the trace area: one file that every process of the host maps, a byte ring behind a
// header. Processes append lines at the write offset, a consumer outside the library advances the read
// offset. A line that does not fit is dropped; unread bytes are never overwritten.
#ifndef ZEBU_MMAP_MMAP_H
#define ZEBU_MMAP_MMAP_H

#include <stddef.h>
#include <stdint.h>
#include <sys/mman.h>
#include <sys/time.h>

#include <atomic>

#include "mmap/AreaAppend.h"

// Callers hold the process mutex, but for the two writes, which are made within a ZEBUAreaUse. int results:
// 0, or -1 with the failure recorded.
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
    // Frees the memory unless somebody does not let go of the area. No reference is left, and nobody finds
    // the object any more.
    static void operator delete(void* p) noexcept;

    // Creates the area or attaches to it. One whose header is damaged is mapped too; appends to it fail.
    // Fails with 2, 4, 5, 7, 14, 20, 21, 22, 23, or 26 when a file is to be begun with a size that holds no
    // area.
    int openFile();

    // Unmaps and closes. Fails with 23, also when puts or signal handlers do not let go of the mapping.
    int closeFile();

    // Appends a line. Length 0 and a line without room are no failures. Fails with 1, 11 or 26.
    int writeToMMap(const void* pData, unsigned int uLength)
    {
        void* const pArea = pMap.load(std::memory_order_acquire);
        if (pArea == MAP_FAILED || !pData) [[unlikely]]
            return refuseLine(pArea != MAP_FAILED);
        if (uLength == 0)
            return 0;
        const ZEBUAppend eAppend = ZEBU_AppendToArea(pArea, uMapLength, pData, uLength);
        return eAppend == ZEBU_APPEND_DAMAGED ? failDamaged() : 0;
    }

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
    static int refuseLine(bool bMapped);
    static int failDamaged();
    int openFileObject();
    int checkLockedFile(unsigned int uWanted);
    int readAndCheckHeader();
    int beginOrKeep(int iFound, unsigned int uWanted);
    int initFileObject(unsigned int uDataSize);
    int lengthenFile(long lSize, long lWanted);
    int mapFile();
    int unmapFile();

    unsigned int uMapLength;
    int iFd;
    bool bBegun;             // by this object, and not mapped yet
    std::atomic<void*> pMap; // also read by signal handlers
    int iRefCount;
};

// Opens the area file for reading and writing, made with mode 0666 when missing, following no symbolic
// link. Returns a descriptor, or -1 with a code and a failure number (2, 7 or 20).
int fs_safeOpen(const char* pszPath, int* piCode, int* piPos);

// ---- The rate limit: so many lines for each period ------------------------------------------------

// Guarded by the process mutex, but for whole seconds, which every line reads.
struct tagZEBU_LIMIT_TIME
{
    std::atomic<long> tv_sec;
    long tv_usec;
};

extern constinit tagZEBU_LIMIT_TIME fs_zebu_mmap_interval_sec; // length of a period; 0 seconds: no limit
extern unsigned int g_zebu_mmap_output_max;
extern constinit tagZEBU_LIMIT_TIME fs_zebu_last_update_time; // start of the period
extern unsigned int fs_zebu_mmap_output_count;                // lines of the period beyond the first

// Sets the limit. An interval outside 0..86400 seconds or a maximum outside 0..1000000 leaves what it was.
void ZEBU_initMMapLimitValues(int iIntervalSec, int iMaxMsgNum);

// 1 when the line of time `pNow` is to be dropped, else 0 and the line is counted. The caller holds the
// process mutex.
int fs_isMsgTooMany(const timeval* pNow);

// Applies the limit to a line, under the process mutex, which is taken only where there is a limit.
bool ZEBU_IsAboveLimit(const timeval* pNow);
inline bool ZEBU_IsAboveRateLimit(const timeval* pNow)
{
    return fs_zebu_mmap_interval_sec.tv_sec.load(std::memory_order_relaxed) != 0 && ZEBU_IsAboveLimit(pNow);
}

#endif
