// mmap/AreaGuard.cpp -- how long an append waits for others.
#include "mmap/AreaGuard.h"

#include <errno.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

// What must never be taken for an append: what others are known to write there, small numbers, ids of
// processes and threads.
static_assert(!ZEBU_IsHolder(0) && !ZEBU_IsHolder(0x3FFFFF) && !ZEBU_IsHolder(0xFFFFFFFF) &&
              !ZEBU_IsHolder(0xA5A5A5A5) && !ZEBU_IsHolder(0x5A5A5A5A) && !ZEBU_IsHolder(0xDEADBEEF));

// Nanoseconds.
enum : int64_t {
    cs_lMillisecond = 1'000'000,
    cs_lSecond = 1'000 * cs_lMillisecond,
    cs_lHolderTime = 100 * cs_lMillisecond, // of a holder that does not go on
    cs_lShortWait = 30 * cs_lMillisecond,   // not accounted for: a holder may wait that long for a processor,
    cs_lBusyWait = 90 * cs_lMillisecond,    // or this long on a machine with far too much to do
    cs_lLongWait = cs_lHolderTime + 10 * cs_lMillisecond
};

// A look takes the header's cache line from the writer that is at work. So there is time between two looks
// for some lines; and where a look finds that so many went in, their writers are left alone for longer: a
// thread stores several lines in turn from its own cache, and they do not go to and fro for each. Threads
// that put now and then do not meet that. 0.2 ms at most until the waiting thread sleeps.
enum : uint32_t {
    cs_uSpins = 10,
    cs_uStuckSpins = 1, // where the long wait was spent in vain
    cs_uPauses = 32,    // 0.3 to 1 us
    cs_uDoublings = 3,
    cs_uManyBytes = 1'024,
    cs_uManyPauses = 512
};

// The long wait that the process spends in a second: when it began, and until when none may follow.
static constinit std::atomic<int64_t> cs_lLongSince{-cs_lSecond}, cs_lNoneUntil{0};

// The write offset at which that wait ended, so long as it stands there; -1: nowhere.
static constinit std::atomic<int64_t> cs_lStuckAt{-1};

// The state that was last in anybody's way, and a time from which on it was seen to stand. All threads of the
// process share what they see, so that a holder is passed over in time also by lines that may not wait.
static constinit std::atomic<uint64_t> cs_uSeen{0};
static constinit std::atomic<int64_t> cs_lSeenSince{0};

static int64_t fs_now()
{
    timespec now;
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * cs_lSecond + now.tv_nsec;
}

void ZEBU_SleepUncancelled(long lNanoseconds)
{
    const timespec pause = {0, lNanoseconds};
    (void)syscall(SYS_nanosleep, &pause, nullptr); // the function of that name can be cancelled
}

// For how long a state has been seen to stand. The time is stored before the state and never goes back: what
// a thread that was held up here stores late can only make the time look shorter.
static int64_t fs_standsFor(uint64_t uState, int64_t lNow)
{
    if (cs_uSeen.load(std::memory_order_acquire) == uState)
        return lNow - cs_lSeenSince.load(std::memory_order_relaxed);
    int64_t lSince = cs_lSeenSince.load(std::memory_order_relaxed);
    while (lSince < lNow && !cs_lSeenSince.compare_exchange_weak(lSince, lNow, std::memory_order_relaxed))
        ;
    cs_uSeen.store(uState, std::memory_order_release);
    return 0;
}

// Whether the long wait was spent at this write offset: then little is gained by turning in place either.
static bool fs_isStuckAt(uint32_t uOffset)
{
    const int64_t lStuckAt = cs_lStuckAt.load(std::memory_order_relaxed);
    if (lStuckAt >= 0 && lStuckAt != uOffset)
        cs_lStuckAt.store(-1, std::memory_order_relaxed); // lines go in
    return lStuckAt == uOffset;
}

// Whether to go on waiting at a write offset that has stood still since `lBegan`. Every thread may share the
// long wait that one of them began. Of threads that begin one at the same time any may be the one.
static bool fs_mayWait(uint32_t uOffset, int64_t lBegan, int64_t lNow)
{
    if (lNow < cs_lNoneUntil.load(std::memory_order_relaxed))
        return false;
    if (lNow - lBegan < cs_lShortWait)
        return true;
    int64_t lLong = cs_lLongSince.load(std::memory_order_relaxed);
    if (lNow - lLong >= cs_lSecond) {
        cs_lLongSince.compare_exchange_strong(lLong, lBegan, std::memory_order_relaxed);
        return true;
    }
    if (lNow - lLong <= cs_lLongWait)
        return true;
    cs_lNoneUntil.store(lLong + cs_lSecond, std::memory_order_relaxed);
    cs_lStuckAt.store(uOffset, std::memory_order_relaxed);
    return false;
}

// A wait that ended because a line went in was none at a guard that is stuck.
static void fs_giveBackLongWait(int64_t lBegan, int64_t lNow)
{
    if (lNow - lBegan < cs_lBusyWait)
        cs_lLongSince.compare_exchange_strong(lBegan, lNow - cs_lSecond, std::memory_order_relaxed);
}

static void fs_pause(uint32_t uPauses)
{
    for (; uPauses > 0; --uPauses)
        ZEBU_Pause();
}

ZEBUAreaWait::Turn ZEBUAreaWait::turn(tagZEBU_AREA_HEADER* pHeader, uint64_t uState)
{
    if (uTurns >= (fs_isStuckAt(ZEBU_OffsetOf(uState)) ? cs_uStuckSpins : cs_uSpins))
        return sleep(pHeader, uState);
    fs_pause(cs_uPauses << (uTurns < cs_uDoublings ? uTurns : cs_uDoublings));
    if (ZEBU_OffsetOf(ZEBU_LoadAreaState(pHeader)) - ZEBU_OffsetOf(uState) >= cs_uManyBytes)
        fs_pause(cs_uManyPauses);
    ++uTurns;
    return LOOK_AGAIN;
}

[[gnu::noinline, gnu::cold]] ZEBUAreaWait::Turn ZEBUAreaWait::sleep(tagZEBU_AREA_HEADER* pHeader,
                                                                    uint64_t uState)
{
    int64_t lNow = fs_now();
    if (lFirst == 0)
        lFirst = lBegan = lNow;
    const int64_t lStands = fs_standsFor(uState, lNow);
    if (ZEBU_IsHolder(ZEBU_GuardOf(uState)) && lStands >= cs_lHolderTime) {
        cs_lNoneUntil.store(0, std::memory_order_relaxed); // lines will go in again
        cs_lStuckAt.store(-1, std::memory_order_relaxed);
        return PASS_OVER;
    }
    if (lNow - lFirst >= cs_lSecond || !fs_mayWait(ZEBU_OffsetOf(uState), lBegan, lNow))
        return GIVE_UP;
    const int iErrno = errno;
    ZEBU_SleepUncancelled(ZEBU_AREA_PAUSE);
    errno = iErrno;
    if (ZEBU_OffsetOf(ZEBU_LoadAreaState(pHeader)) != ZEBU_OffsetOf(uState)) {
        lNow = fs_now();
        fs_giveBackLongWait(lBegan, lNow);
        lBegan = lNow;
    }
    return LOOK_AGAIN;
}

void ZEBU_ForgetAreaWaits()
{
    cs_lLongSince.store(-cs_lSecond, std::memory_order_relaxed);
    cs_lNoneUntil.store(0, std::memory_order_relaxed);
    cs_lStuckAt.store(-1, std::memory_order_relaxed);
}
