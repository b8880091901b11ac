// mmap/AreaGuard.h -- the word that orders appends to the trace area, and the wait for another's append.
//
// Write offset and guard lie side by side and change together, as one state of eight bytes: an append takes
// the guard by one compare-and-swap and stores the new offset and frees the guard by another. The word of an
// append says that it is one of this library's, how much space behind the write offset its line may take, and
// a number that makes two states alike unlikely. Whatever else stands there is somebody else's, counts as
// free and is put back.
#ifndef ZEBU_MMAP_AREAGUARD_H
#define ZEBU_MMAP_AREAGUARD_H

#include <stdint.h>

#include "frame/Word.h"
#include "mmap/AreaHeader.h"
#include "output/LineFormat.h"

// Lets the other thread of the processor's core work while this one turns in place.
inline void ZEBU_Pause()
{
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("isb" ::: "memory");
#endif
}

constexpr long ZEBU_AREA_PAUSE = 50'000; // nanoseconds, between two looks at what others do

// Sleeps, less than a second, at what is no point of cancellation. Sets errno.
void ZEBU_SleepUncancelled(long lNanoseconds);

// ---- The state -----------------------------------------------------------------------------------

inline ZEBUWord* ZEBU_AreaStateOf(tagZEBU_AREA_HEADER* pHeader)
{
    return reinterpret_cast<ZEBUWord*>(&pHeader->uWriteOffset);
}
static_assert(offsetof(tagZEBU_AREA_HEADER, uWriteOffset) % sizeof(ZEBUWord) == 0);

// Acquires: the appends before this state are done, and the bytes that the consumer gave back are free.
inline uint64_t ZEBU_LoadAreaState(tagZEBU_AREA_HEADER* pHeader)
{
    return __atomic_load_n(ZEBU_AreaStateOf(pHeader), __ATOMIC_ACQUIRE);
}

// Replaces `*puSeen`, or leaves what stands there in it. Releases and acquires: one state is the end of one
// append and the beginning of another.
inline bool ZEBU_ChangeAreaState(tagZEBU_AREA_HEADER* pHeader, uint64_t* puSeen, uint64_t uState)
{
    ZEBUWord uExpected = *puSeen;
    const bool bChanged = __atomic_compare_exchange_n(ZEBU_AreaStateOf(pHeader), &uExpected, uState, false,
                                                      __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
    *puSeen = uExpected;
    return bChanged;
}

constexpr uint64_t ZEBU_AreaState(uint32_t uOffset, uint32_t uGuard)
{
    return uint64_t{uGuard} << 32 | uOffset;
}
constexpr uint32_t ZEBU_OffsetOf(uint64_t uState)
{
    return static_cast<uint32_t>(uState);
}
constexpr uint32_t ZEBU_GuardOf(uint64_t uState)
{
    return static_cast<uint32_t>(uState >> 32);
}

// ---- The word ------------------------------------------------------------------------------------

// Sixteen bits that say whose word it is: no small number, no process or thread id, no pattern that memory is
// filled with. Thirteen of the number. Three of the class of length.
constexpr uint32_t ZEBU_GUARD_TAG = 0xE9C3u;
constexpr uint32_t ZEBU_GUARD_CLASS = 7;

constexpr bool ZEBU_IsHolder(uint32_t uGuard)
{
    return uGuard >> 16 == ZEBU_GUARD_TAG;
}

// A hold is the word without its class: it stays the same while the space that is claimed changes.
constexpr uint32_t ZEBU_HoldOf(uint32_t uGuard)
{
    return uGuard & ~ZEBU_GUARD_CLASS;
}
constexpr uint32_t ZEBU_HoldOfNumber(uint32_t uNumber)
{
    return ZEBU_GUARD_TAG << 16 | (uNumber & 0x1FFF) << 3;
}

// The class of a line: 0 is no line at all, 7 one that is longer than any of the library's.
constexpr uint32_t ZEBU_ClassOf(uint32_t uLength)
{
    const uint32_t uClass = 25 - static_cast<uint32_t>(__builtin_clz((uLength - 1) | 0x80));
    return uClass < ZEBU_GUARD_CLASS ? uClass : ZEBU_GUARD_CLASS;
}

// The most bytes behind the write offset that a holder with this word writes.
constexpr uint64_t ZEBU_SpaceOf(uint32_t uGuard)
{
    const uint32_t uClass = uGuard & ZEBU_GUARD_CLASS;
    return uClass == 0 ? 0 : uClass == ZEBU_GUARD_CLASS ? UINT32_MAX : 128u << uClass;
}
static_assert(ZEBU_ClassOf(ZEBU_LINE_MAX) < ZEBU_GUARD_CLASS);
static_assert(ZEBU_SpaceOf(ZEBU_ClassOf(1)) == 256 && ZEBU_SpaceOf(ZEBU_ClassOf(256)) == 256);
static_assert(ZEBU_SpaceOf(ZEBU_ClassOf(257)) == 512 && ZEBU_SpaceOf(ZEBU_ClassOf(513)) == 1024);

// ---- Waiting -------------------------------------------------------------------------------------

// What one append waits for the appends of others. Waiting is short where lines go in one after the other. A
// holder that does not go on is given 0.1 s, since nobody can tell from here whether it lives: it may run in
// a container of its own. Of every second the process spends 0.1 s on such a guard and no more; lines that
// meet it in the rest of the second are dropped like lines without room. Async-signal-safe; keeps errno.
class ZEBUAreaWait final
{
public:
    enum Turn { LOOK_AGAIN, PASS_OVER, GIVE_UP };

    // Lets some time go by; `uState` is what stood in the way.
    Turn turn(tagZEBU_AREA_HEADER* pHeader, uint64_t uState);

private:
    Turn sleep(tagZEBU_AREA_HEADER* pHeader, uint64_t uState);

    uint32_t uTurns = 0;
    int64_t lFirst = 0; // in ns: when this append began to sleep,
    int64_t lBegan = 0; // and when the write offset was last seen to have moved
};

// In the child of a fork: it has waited for nobody yet.
void ZEBU_ForgetAreaWaits();

#endif
