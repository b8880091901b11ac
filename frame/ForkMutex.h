// frame/ForkMutex.h -- a mutex that knows which thread holds it.
//
// A fork takes the library's mutexes, so that none is locked in the child by a thread that the child does not
// have. It may happen in a signal handler that interrupted a thread anywhere inside of the library: what that
// thread holds already the fork must not wait for. So the holder stands in the word that is the lock, where
// there is no moment at which one is true and not yet the other.
#ifndef ZEBU_FRAME_FORKMUTEX_H
#define ZEBU_FRAME_FORKMUTEX_H

#include <stdint.h>

#include <atomic>

#include "frame/TLSState.h"

class ZEBUForkMutex final
{
public:
    constexpr ZEBUForkMutex() = default;
    ZEBUForkMutex(const ZEBUForkMutex&) = delete;
    ZEBUForkMutex& operator=(const ZEBUForkMutex&) = delete;

    void lock()
    {
        uint32_t uFree = 0;
        if (!uWord.compare_exchange_strong(uFree, self(), std::memory_order_acquire,
                                           std::memory_order_relaxed)) [[unlikely]]
            wait();
    }
    void unlock()
    {
        if (uWord.exchange(0, std::memory_order_release) & cs_uWaiters) [[unlikely]]
            wake();
    }

    // Locks for the time of a fork. Returns false when the calling thread holds it already; then it stays as
    // it is, in the child too.
    bool lockForFork()
    {
        if ((uWord.load(std::memory_order_relaxed) & ~cs_uWaiters) == self())
            return false;
        lock();
        return true;
    }

private:
    static constexpr uint32_t cs_uWaiters = 0x80000000; // some thread may sleep until the word changes
    static constexpr uint32_t cs_uHeld = 0x40000000;    // with it no thread is 0

    // The calling thread: the place of its variables, of which no two threads within 64 GiB have the same.
    static uint32_t self()
    {
        return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&cs_pOwnTlsVar) >> 6 & (cs_uHeld - 1)) |
               cs_uHeld;
    }

    void wait();
    void wake();

    std::atomic<uint32_t> uWord{0}; // 0, or who holds it
};

#endif
