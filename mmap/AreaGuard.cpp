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

// The long wait that the process spends in a second: when it began, and until when none may follow.
static constinit std::atomic<int64_t> cs_lLongSince{-cs_lSecond}, cs_lNoneUntil{0};

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

// Whether to go on waiting at a write offset that has stood still since `lBegan`. Every thread may share the
// long wait that one of them began. Of threads that begin one at the same time any may be the one.
static bool fs_mayWait(int64_t lBegan, int64_t lNow)
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
    return false;
}

// A wait that ended because a line went in was none at a guard that is stuck.
static void fs_giveBackLongWait(int64_t lBegan, int64_t lNow)
{
    if (lNow - lBegan < cs_lBusyWait)
        cs_lLongSince.compare_exchange_strong(lBegan, lNow - cs_lSecond, std::memory_order_relaxed);
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
        return PASS_OVER;
    }
    if (lNow - lFirst >= cs_lSecond || !fs_mayWait(lBegan, lNow))
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
}
