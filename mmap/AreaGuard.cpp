// mmap/AreaGuard.cpp -- the guard that orders appends to the trace area.
#include "mmap/AreaGuard.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

// A guard word is a kernel thread id, which fits 22 bits, below a number that changes with every append,
// so that a waiter sees whether the same append is still going on.
enum : uint32_t { cs_uThreadBits = 22, cs_uThreadMask = (1u << cs_uThreadBits) - 1 };

// Waiting: a short spin, then pauses of 50 microseconds (about twice that as the kernel counts). In
// pauses without a change: when to look whether the holder lives, when to take it for hung. And in all.
enum { cs_iSpins = 200, cs_iLookPauses = 10, cs_iHungPauses = 1000, cs_iPausesMax = 10000 };

// Used in signal handlers: the library's thread-local memory is there from a thread's start.
namespace {

struct Appender
{
    uint32_t uThread;
    uint32_t uAppends;
    volatile int iDepth; // appends that this thread is in; 2 and more in handlers
};

} // namespace

static __thread Appender cs_self;

static constinit std::atomic<int> cs_iSigSafePuts{0};

static void fs_pause()
{
    const timespec pause = {0, 50'000};
    (void)syscall(SYS_nanosleep, &pause, nullptr); // the function of that name can be cancelled
}

[[gnu::noinline, gnu::cold]] static void fs_learnThread()
{
    cs_self.uThread = static_cast<uint32_t>(syscall(SYS_gettid)) & cs_uThreadMask;
}

static uint32_t fs_newWord()
{
    if (cs_self.uThread == 0)
        fs_learnThread();
    return ++cs_self.uAppends << cs_uThreadBits | cs_self.uThread;
}

// The state letter of a thread from /proc, or 0. A dead thread whose parent has not asked for it yet
// still answers to signals.
static char fs_threadState(uint32_t uThread)
{
    char szPath[] = "/proc/0000000/stat";
    for (int i = 12; i >= 6; --i, uThread /= 10)
        szPath[i] = static_cast<char>('0' + uThread % 10);
    char* pszFirst = szPath + 6;
    while (*pszFirst == '0')
        ++pszFirst;
    memmove(szPath + 6, pszFirst, sizeof szPath - static_cast<size_t>(pszFirst - szPath));

    const int iFd = static_cast<int>(syscall(SYS_open, szPath, O_RDONLY | O_CLOEXEC));
    if (iFd == -1)
        return 0;
    char szStat[128];
    const long lLength = syscall(SYS_read, iFd, szStat, sizeof szStat);
    (void)syscall(SYS_close, iFd);
    for (long i = lLength - 3; i > 0; --i) {
        if (szStat[i] == ')')
            return szStat[i + 2];
    }
    return 0;
}

static bool fs_isGone(uint32_t uWord)
{
    const uint32_t uThread = uWord & cs_uThreadMask;
    if (uThread == 0)
        return true;
    if (kill(static_cast<pid_t>(uThread), 0) != 0 && errno == ESRCH)
        return true;
    const char cState = fs_threadState(uThread);
    return cState == 'Z' || cState == 'X';
}

// In step with the guard as a handler on this thread sees both.
static void fs_changeDepth(int iBy)
{
    std::atomic_signal_fence(std::memory_order_seq_cst);
    cs_self.iDepth = cs_self.iDepth + iBy;
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

static bool fs_replaceWord(tagZEBU_AREA_HEADER* pHeader, uint32_t uSeen, uint32_t uWord)
{
    return __atomic_compare_exchange_n(&pHeader->uGuard, &uSeen, uWord, false, __ATOMIC_ACQUIRE,
                                       __ATOMIC_RELAXED);
}

// True when the holder `uWord` is the append that a handler on this thread has interrupted.
static bool fs_isInterruptedSelf(uint32_t uWord)
{
    return cs_self.iDepth > 1 && (uWord & cs_uThreadMask) == cs_self.uThread;
}

// True when a holder that has stood still for `iQuiet` pauses may be passed over.
static bool fs_mayPass(uint32_t uWord, int iQuiet)
{
    if (iQuiet >= cs_iHungPauses)
        return true;
    return iQuiet % cs_iLookPauses == cs_iLookPauses - 1 && fs_isGone(uWord);
}

// Kept out of the way of an append that finds the guard free.
[[gnu::noinline, gnu::cold]] static bool fs_waitForGuard(tagZEBU_AREA_HEADER* pHeader, uint32_t uWord)
{
    uint32_t uSeen = 0;
    for (int iTurn = 0, iQuiet = 0; iTurn < cs_iSpins + cs_iPausesMax; ++iTurn) {
        const uint32_t uNow = __atomic_load_n(&pHeader->uGuard, __ATOMIC_RELAXED);
        iQuiet = uNow == uSeen ? iQuiet + 1 : 0;
        uSeen = uNow;
        if (uNow == 0) {
            if (fs_replaceWord(pHeader, 0, uWord))
                return true;
        } else if (fs_isInterruptedSelf(uNow)) {
            return false;
        } else if (iTurn >= cs_iSpins && fs_mayPass(uNow, iQuiet) && fs_replaceWord(pHeader, uNow, uWord)) {
            return true;
        }
        if (iTurn < cs_iSpins)
            __builtin_ia32_pause();
        else
            fs_pause();
    }
    return false;
}

uint32_t ZEBU_TakeAreaGuard(tagZEBU_AREA_HEADER* pHeader)
{
    fs_changeDepth(1);
    const uint32_t uWord = fs_newWord();
    if (fs_replaceWord(pHeader, 0, uWord))
        return uWord;

    const int iErrno = errno;
    const bool bTaken = fs_waitForGuard(pHeader, uWord);
    errno = iErrno;
    if (bTaken)
        return uWord;
    fs_changeDepth(-1);
    return 0;
}

void ZEBU_DropAreaGuard(tagZEBU_AREA_HEADER* pHeader, uint32_t uGuard)
{
    __atomic_compare_exchange_n(&pHeader->uGuard, &uGuard, 0, false, __ATOMIC_RELEASE, __ATOMIC_RELAXED);
    fs_changeDepth(-1);
}

bool ZEBU_CommitAppend(tagZEBU_AREA_HEADER* pHeader, uint32_t uGuard, uint32_t uOldOffset,
                       uint32_t uNewOffset)
{
    typedef uint64_t __attribute__((may_alias)) TWord; // write offset and guard; the mapping is aligned
    char* pOffset = reinterpret_cast<char*>(pHeader) + offsetof(tagZEBU_AREA_HEADER, uWriteOffset);
    uint64_t uExpected = static_cast<uint64_t>(uGuard) << 32 | uOldOffset;
    if (!__atomic_compare_exchange_n(reinterpret_cast<TWord*>(pOffset), &uExpected, uNewOffset, false,
                                     __ATOMIC_RELEASE, __ATOMIC_RELAXED)) {
        ZEBU_DropAreaGuard(pHeader, uGuard);
        return false;
    }
    fs_changeDepth(-1);
    return true;
}

void ZEBU_EnterSigSafePut()
{
    cs_iSigSafePuts.fetch_add(1);
}

void ZEBU_LeaveSigSafePut()
{
    cs_iSigSafePuts.fetch_sub(1);
}

bool ZEBU_WaitForSigSafePuts()
{
    for (int i = 0; cs_iSigSafePuts.load() != 0; ++i) {
        if (i >= cs_iPausesMax)
            return false;
        fs_pause();
    }
    return true;
}

void ZEBU_ForgetThreads()
{
    cs_self.uThread = 0;
    cs_self.iDepth = 0;
    cs_iSigSafePuts.store(0);
}
