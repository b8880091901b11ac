// frame/ForkMutex.cpp -- the ways of the mutex that are taken when threads meet.
#include "frame/ForkMutex.h"

#include <errno.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

void ZEBUForkMutex::wait()
{
    const int iErrno = errno;
    for (;;) {
        uint32_t uSeen = uWord.load(std::memory_order_relaxed);
        // Whether more threads wait is not known to the one that got it: it keeps saying so.
        if (uSeen == 0 && uWord.compare_exchange_strong(uSeen, self() | cs_uWaiters,
                                                        std::memory_order_acquire, std::memory_order_relaxed))
            break;
        if (uSeen == 0 ||
            (!(uSeen & cs_uWaiters) &&
             !uWord.compare_exchange_strong(uSeen, uSeen | cs_uWaiters, std::memory_order_relaxed)))
            continue;
        (void)syscall(SYS_futex, &uWord, FUTEX_WAIT_PRIVATE, uSeen | cs_uWaiters, nullptr, nullptr, 0);
    }
    errno = iErrno;
}

void ZEBUForkMutex::wake()
{
    const int iErrno = errno;
    (void)syscall(SYS_futex, &uWord, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    errno = iErrno;
}
