// mmap/AreaUse.cpp -- waiting for those who are in the trace area.
#include "mmap/AreaUse.h"

#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "mmap/AreaGuard.h"

constexpr long cs_lLongPause = 10'000'000; // nanoseconds
constexpr int cs_iPausesMax = 10000;       // about a second, as the kernel counts

constinit std::atomic<bool> ZEBU_bAreaMarks{false};
constinit std::atomic<int> ZEBU_iAreaUsers{0};

static bool fs_register()
{
    return syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;
}

void ZEBU_PrepareAreaUse()
{
    if (!ZEBU_bAreaMarks.load(std::memory_order_relaxed) && fs_register())
        ZEBU_bAreaMarks.store(true, std::memory_order_relaxed);
}

// A process that has forbidden itself the call since it was registered waits for what comes by itself: a
// store leaves its processor within microseconds.
static void fs_barrierOnAllThreads()
{
    for (int i = 0; i < 2; ++i) {
        if (syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0)
            return;
        (void)fs_register();
    }
    ZEBU_SleepUncancelled(cs_lLongPause);
}

bool ZEBU_WaitForAreaUsers()
{
    if (ZEBU_bAreaMarks.load(std::memory_order_relaxed))
        fs_barrierOnAllThreads();
    for (int i = 0; ZEBU_iAreaUsers.load() > 0 || ZEBU_IsAnyThreadInArea(); ++i) {
        if (i >= cs_iPausesMax)
            return false;
        ZEBU_SleepUncancelled(ZEBU_AREA_PAUSE);
    }
    return true;
}

void ZEBU_ForgetAreaUsers()
{
    ZEBU_iAreaUsers.store(0);
    ZEBU_ForgetOtherThreads();
}
