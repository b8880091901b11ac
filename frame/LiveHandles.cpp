// frame/LiveHandles.cpp -- the set of live instance handles: a hash table with linear probing.
#include "frame/LiveHandles.h"

#include <stdint.h>
#include <stdlib.h>

#include <atomic>

#include "frame/ErrPos.h"

namespace {

using Slot = std::atomic<uintptr_t>;

constexpr uintptr_t cs_uEmpty = 0;   // ends a probe
constexpr uintptr_t cs_uRemoved = 1; // does not

struct Table
{
    unsigned int uSlots; // a power of two, at most half of it live
    Table* pOlder;       // tables that were grown out of: a reader may still be in one

    Slot* slots() { return reinterpret_cast<Slot*>(this + 1); } // behind the table in its block
};
static_assert(alignof(Table) >= alignof(Slot));

} // namespace

static constinit std::atomic<Table*> cs_pTable{nullptr};
static unsigned int cs_uLive;

// Walks the probe of a handle: returns the slot that holds it, or the empty one that ends the probe, or
// null when it went round a table without an empty slot. `ppFree`: the first slot that can take it.
static Slot* fs_probe(Table* pTable, uintptr_t uHandle, Slot** ppFree)
{
    const uintptr_t uHash = (uHandle >> 4) * 0x9E3779B97F4A7C15u;
    for (unsigned int i = 0; i < pTable->uSlots; ++i) {
        Slot* pSlot = &pTable->slots()[((uHash >> 32) + i) & (pTable->uSlots - 1)];
        const uintptr_t uSeen = pSlot->load(std::memory_order_acquire);
        if (ppFree && !*ppFree && (uSeen == cs_uEmpty || uSeen == cs_uRemoved))
            *ppFree = pSlot;
        if (uSeen == uHandle || uSeen == cs_uEmpty)
            return pSlot;
    }
    return nullptr;
}

bool ZEBU_IsLiveHandle(const ZEBUTraceObject* hInstance)
{
    Table* pTable = cs_pTable.load(std::memory_order_acquire);
    const auto uHandle = reinterpret_cast<uintptr_t>(hInstance);
    if (!pTable || uHandle <= cs_uRemoved)
        return false;
    const Slot* pSlot = fs_probe(pTable, uHandle, nullptr);
    return pSlot && pSlot->load(std::memory_order_acquire) == uHandle;
}

static void fs_insert(Table* pTable, uintptr_t uHandle)
{
    Slot* pFree = nullptr;
    (void)fs_probe(pTable, uHandle, &pFree);
    pFree->store(uHandle, std::memory_order_release);
}

static bool fs_grow(Table* pOld)
{
    const unsigned int uSlots = pOld ? pOld->uSlots * 2 : 16;
    auto* pNew = static_cast<Table*>(calloc(1, sizeof(Table) + uSlots * sizeof(Slot)));
    if (!pNew) {
        SetErrPos(ZEBU_EPOS_NOMEM, errno);
        return false;
    }
    pNew->uSlots = uSlots;
    pNew->pOlder = pOld;
    for (unsigned int i = 0; pOld && i < pOld->uSlots; ++i) {
        const uintptr_t uHandle = pOld->slots()[i].load(std::memory_order_relaxed);
        if (uHandle > cs_uRemoved)
            fs_insert(pNew, uHandle);
    }
    cs_pTable.store(pNew, std::memory_order_release);
    return true;
}

bool ZEBU_AddLiveHandle(const ZEBUTraceObject* hInstance)
{
    Table* pTable = cs_pTable.load(std::memory_order_relaxed);
    if ((!pTable || cs_uLive + 1 > pTable->uSlots / 2) && !fs_grow(pTable))
        return false;
    fs_insert(cs_pTable.load(std::memory_order_relaxed), reinterpret_cast<uintptr_t>(hInstance));
    ++cs_uLive;
    return true;
}

void ZEBU_RemoveLiveHandle(const ZEBUTraceObject* hInstance)
{
    Table* pTable = cs_pTable.load(std::memory_order_relaxed);
    Slot* pSlot = fs_probe(pTable, reinterpret_cast<uintptr_t>(hInstance), nullptr);
    pSlot->store(cs_uRemoved, std::memory_order_release);
    --cs_uLive;

    // Slots before an empty one that only said "go on" are empty too: probes stay short however often
    // instances come and go.
    const unsigned int uMask = pTable->uSlots - 1;
    auto i = static_cast<unsigned int>(pSlot - pTable->slots());
    if (pTable->slots()[(i + 1) & uMask].load(std::memory_order_relaxed) != cs_uEmpty)
        return;
    for (; pTable->slots()[i].load(std::memory_order_relaxed) == cs_uRemoved; i = (i - 1) & uMask)
        pTable->slots()[i].store(cs_uEmpty, std::memory_order_release);
}
