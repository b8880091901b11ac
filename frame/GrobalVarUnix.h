// frame/GrobalVarUnix.h -- the process-wide state and the process mutex.
//
// Values that puts read without the mutex are atomics; everything else is guarded by it.
#ifndef ZEBU_FRAME_GROBALVARUNIX_H
#define ZEBU_FRAME_GROBALVARUNIX_H

#include <atomic>

#include "frame/ForkMutex.h"
#include "frame/Word.h"
#include "output/LineFormat.h"

class ZEBUMMapFile;

// The process mutex. Lock order: this one, then a shared ring's lock, then the list of contexts.
#pragma GCC visibility push(hidden)
extern constinit ZEBUForkMutex cs_mutex;
#pragma GCC visibility pop

inline void ZEBU_MtLock()
{
    cs_mutex.lock();
}

inline void ZEBU_MtUnlock()
{
    cs_mutex.unlock();
}

struct tagZEBU_THRESHOLD
{
    char szTag[8];
    std::atomic<int> iLogLevel;
    std::atomic<int> iFileThreshold;
    std::atomic<int> iShmThreshold;
};

// Positions in ZEBU2_LockValue.
enum { ZEBU_LOCK_WAIT, ZEBU_LOCK_RETRY, ZEBU_LOCK_INSTANCE_WAIT, ZEBU_LOCK_INSTANCE_RETRY, ZEBU_LOCK_VALUES };

// Known to be of this library also where they are only declared: found without a table.
#pragma GCC visibility push(hidden)
extern constinit std::atomic<int> ZEBU2_iIsInitialized;
extern constinit std::atomic<ZEBUMMapFile*> ZEBU2_pMMap; // also read by the signal-safe put
extern constinit tagZEBU_THRESHOLD ZEBU2_Threshold;
extern constinit std::atomic<int> ZEBU2_LockValue[ZEBU_LOCK_VALUES];
extern constinit std::atomic<int> ZEBU2_iTickType;
extern constinit std::atomic<int> ZEBU2_iMsgCount;

// Counts the forks between the process that was started and this one. What belongs to one process
// alone keeps the value it was made under and is foreign when the value has changed.
extern constinit std::atomic<unsigned int> ZEBU_uForkGeneration;

// Read without the mutex while an initialisation may store them: through the functions below.
extern char ZEBU2_szAppName[ZEBU_APP_NAME + 1];
extern char ZEBU2_szProcessId[ZEBU_PROCESS_ID + 1];
#pragma GCC visibility pop

[[gnu::always_inline]] inline void ZEBU_LoadWord(char* pText, const char* pShared)
{
    const ZEBUWord uWord = __atomic_load_n(reinterpret_cast<const ZEBUWord*>(pShared), __ATOMIC_RELAXED);
    __builtin_memcpy(pText, &uWord, sizeof uWord);
}

// Writes the process log's application name, 16 characters, blank-padded. No terminator. Signal-safe.
[[gnu::always_inline]] inline void ZEBU_PutAppName(char* pBuf)
{
    ZEBU_LoadWord(pBuf, ZEBU2_szAppName);
    ZEBU_LoadWord(pBuf + sizeof(ZEBUWord), ZEBU2_szAppName + sizeof(ZEBUWord));
}

// Writes the process id text: eight hexadecimal digits and a blank. No terminator. Signal-safe.
[[gnu::always_inline]] inline void ZEBU_PutProcessId(char* pBuf)
{
    ZEBU_LoadWord(pBuf, ZEBU2_szProcessId);
    pBuf[8] = ' ';
}

// The same two with a NUL behind them.
void ZEBU_LoadAppName(char* pszName);
void ZEBU_LoadProcessId(char* pszId);

// Stores a name of any length (null for none) as 16 blank-padded characters and a NUL.
void ZEBU_PadAppName(char* pszPadded, const char* pszName);
void ZEBU_StoreAppName(const char* pszName);

// Stores the process id text of the process that calls.
void ZEBU_StoreProcessId();

// Returns the number for the next line, 0 to 9999, and advances the counter. Lock-free, signal-safe.
[[gnu::always_inline]] inline int ZEBU_TakeMsgCount()
{
    int iSeen = ZEBU2_iMsgCount.load(std::memory_order_relaxed);
    for (;;) {
        const int iCount = iSeen; // what is made of it need not wait for the exchange
        if (ZEBU2_iMsgCount.compare_exchange_weak(iSeen, iCount >= 9999 ? 0 : iCount + 1,
                                                  std::memory_order_relaxed))
            return iCount;
    }
}

#endif
