// mmap/AreaUse.h -- who is in the trace area, so that it is not unmapped meanwhile.
//
// Puts and signal handlers use the area without the process mutex, and mark that with a plain store into
// memory of their thread. A processor may do the load of the area's address that follows before that store is
// seen. It is the side that unmaps, once in a process's life, that makes up for it: it makes the area
// unreachable, has the kernel put a barrier on every processor where a thread of this process runs
// (membarrier), and then looks at the marks. A thread whose mark it does not see loads the address behind the
// barrier, and finds none.
#ifndef ZEBU_MMAP_AREAUSE_H
#define ZEBU_MMAP_AREAUSE_H

#include <atomic>

#include "frame/TLS.h"

// Set for good when the kernel has accepted this process for such barriers.
extern constinit std::atomic<bool> ZEBU_bAreaMarks;

// Users that are counted: all without such barriers, and those on threads that have no context, whose marks
// nobody would find.
extern constinit std::atomic<int> ZEBU_iAreaUsers;

// Marks the calling thread for a block. What it finds of the area in that block stays until its end.
// Async-signal-safe; blocks may be nested. Never take the process mutex in one: who unmaps holds it.
class ZEBUAreaUse final
{
public:
    // `pTls`: the thread's context, where the caller knows it.
    explicit ZEBUAreaUse(const tagZEBU_TLS_VAR* pTls = ZEBU_PeekTlsVar())
        : bCounted(!ZEBU_bAreaMarks.load(std::memory_order_relaxed) || !pTls)
    {
        if (bCounted) [[unlikely]]
            ZEBU_iAreaUsers.fetch_add(1); // with a barrier, as all of these operations
        else
            cs_iAreaUses.store(cs_iAreaUses.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
    ~ZEBUAreaUse()
    {
        if (bCounted) [[unlikely]]
            ZEBU_iAreaUsers.fetch_sub(1);
        else
            cs_iAreaUses.store(cs_iAreaUses.load(std::memory_order_relaxed) - 1, std::memory_order_release);
    }
    ZEBUAreaUse(const ZEBUAreaUse&) = delete;
    ZEBUAreaUse& operator=(const ZEBUAreaUse&) = delete;

private:
    const bool bCounted;
};

// Before the area can be reached. The caller holds the process mutex.
void ZEBU_PrepareAreaUse();

// Waits until nobody uses the area any more, which cannot be reached now: false when some do not leave within
// a second. The caller holds the process mutex.
bool ZEBU_WaitForAreaUsers();

// In the child of a fork, where the other threads are not.
void ZEBU_ForgetAreaUsers();

#endif
