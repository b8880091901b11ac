// mmap/AreaGuard.h -- the guard that orders appends to the trace area.
//
// The guard is the word beside the write offset: 0 while nobody appends, else a word that names the
// appending thread. Taking it is one compare-and-swap, and the append ends with one more that stores the
// new write offset and frees the guard together, provided that both are as they were. So a holder that
// was stopped for long enough to be passed over finds out, and begins again.
#ifndef ZEBU_MMAP_AREAGUARD_H
#define ZEBU_MMAP_AREAGUARD_H

#include <stdint.h>

#include "mmap/AreaHeader.h"

// Takes the guard and returns the word that stands for it. Waits for another holder: until it is seen to
// have died, and for 0.1 s at most if it makes no progress. Returns 0 when the calling thread holds the
// guard itself (a signal handler interrupted its append) or none could be had for a second.
// Async-signal-safe; no system call when nobody holds the guard.
uint32_t ZEBU_TakeAreaGuard(tagZEBU_AREA_HEADER* pHeader);

// True while the guard is the caller's.
inline bool ZEBU_HoldsAreaGuard(const tagZEBU_AREA_HEADER* pHeader, uint32_t uGuard)
{
    return __atomic_load_n(&pHeader->uGuard, __ATOMIC_RELAXED) == uGuard;
}

// Stores the new write offset and frees the guard, if neither has changed. False when the caller was
// passed over; nothing is stored then.
bool ZEBU_CommitAppend(tagZEBU_AREA_HEADER* pHeader, uint32_t uGuard, uint32_t uOldOffset,
                       uint32_t uNewOffset);

// Frees the guard without an append.
void ZEBU_DropAreaGuard(tagZEBU_AREA_HEADER* pHeader, uint32_t uGuard);

// Signal-safe puts that are at work. Whoever takes the area out of service first makes it unreachable
// and then waits for them: false when they are not done within a second.
void ZEBU_EnterSigSafePut();
void ZEBU_LeaveSigSafePut();
bool ZEBU_WaitForSigSafePuts();

// In the child of a fork: the calling thread has a new kernel id, and the parent's puts are not here.
void ZEBU_ForgetThreads();

#endif
