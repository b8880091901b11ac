// mmap/AreaAppend.cpp -- appending a line to the trace area.
//
// Between processes and threads: whoever appends takes the guard, copies its line behind the write offset and
// publishes it, that is moves the offset and frees the guard in one step. Consumers read up to the offset, so
// nobody sees a line before it is whole. A writer that is killed leaves the guard taken and nothing else.
//
// Within a thread: a signal handler may interrupt an append at any instruction, and must not wait for it. It
// finds what its thread is appending in a list of records that lie on the stack, finishes the interrupted
// line from there, publishes it *keeping the guard*, and appends its own line behind it in the same way. The
// interrupted append finds its line stored when it goes on, and frees the guard. So long as it has not gone
// on, the rest of a copy may still be stored over its old place; the guard keeps all others out until then.
// Nested handlers do the same one upon the other: what is below stands still until what is above is done.
//
// A holder that does not go on for 0.1 s is passed over: killed, stopped, or in a handler that does not come
// back. It may live, and go on with a copy in the middle. So the space that its word claims is not used for
// other lines but becomes a blank line, and the holder, which looks at the state before each piece that it
// copies and when it publishes, finds the state changed and begins anew. What remains: one piece of a copy
// that was stopped in its middle for so long that the ring came round meanwhile.
#include "mmap/AreaAppend.h"

#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

#include "mmap/AreaGuard.h"

namespace {

// A line and the area that it goes to. Handed on beside the append's record, in which the compiler must take
// everything for changed by others after every call.
struct Line
{
    tagZEBU_AREA_HEADER* pHeader;
    uint32_t uMapLength;
    uint32_t uLength;
    const char* pData; // null: blanks
};

// One line on its way, and what a handler on the same thread needs to finish it. Only that thread reads and
// writes it; the atomics are for the order in which a handler sees the stores. Links and unlinks itself.
struct Append
{
    explicit Append(Line toAppend);
    ~Append();
    Append(const Append&) = delete;
    Append& operator=(const Append&) = delete;

    const Line line;
    Append* const pOuter;            // what this one has interrupted
    std::atomic<uint64_t> uClaim{0}; // the state of the area while the line is being stored; 0: not yet
    std::atomic<bool> bTaken{false}; // the claim has certainly stood there
    std::atomic<bool> bStored{false};
};

// What the copy of a claimed line came to.
enum class Copy { Published, NoRoom, Lost };

} // namespace

// In memory that every thread has from its start.
static __thread Append* cs_pInnermost;
static __thread uint32_t cs_uNumber;

// A handler sees the stores before this line, and none behind it.
static inline void fs_inOrder()
{
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

inline Append::Append(Line toAppend) : line(toAppend), pOuter(cs_pInnermost)
{
    fs_inOrder();
    cs_pInnermost = this;
    fs_inOrder();
}

inline Append::~Append()
{
    fs_inOrder();
    cs_pInnermost = pOuter;
    fs_inOrder();
}

// ---- The ring ------------------------------------------------------------------------------------

// Each field is read once. False when the header is damaged.
static inline bool fs_readRing(tagZEBU_AREA_HEADER* pHeader, uint64_t uState, tagZEBU_AREA_RING* pRing)
{
    pRing->uSize = __atomic_load_n(&pHeader->uDataSize, __ATOMIC_RELAXED);
    pRing->uWrite = ZEBU_OffsetOf(uState);
    pRing->uRead = __atomic_load_n(&pHeader->uReadOffset, __ATOMIC_ACQUIRE); // the consumer is done before it
    return __atomic_load_n(&pHeader->uMagic, __ATOMIC_RELAXED) == ZEBU_AREA_MAGIC &&
           pRing->uWrite <= pRing->uSize;
}

// Whether both pieces of a line lie within the mapping: the header may say anything.
[[gnu::noinline, gnu::cold]] static bool fs_isMapped(tagZEBU_AREA_RING ring, uint32_t uMapLength,
                                                     uint32_t uLength)
{
    const uint64_t uEnd = uint64_t{ring.uWrite} + uLength;
    const uint64_t uFirstEnd = uEnd < ring.uSize ? uEnd : ring.uSize;
    const uint64_t uSecondEnd = uEnd - uFirstEnd;
    const uint64_t uFurthest = uFirstEnd > uSecondEnd ? uFirstEnd : uSecondEnd;
    return sizeof(tagZEBU_AREA_HEADER) + uFurthest <= uMapLength;
}

// Stored: there is room for the line, as far as can be seen without the guard. Again: the state is no longer
// the one that stands there. A consumer that has come past an older write offset looks as if the ring were
// full.
static inline ZEBUAppend fs_findRoom(Line line, uint64_t uState, tagZEBU_AREA_RING* pRing)
{
    if (!fs_readRing(line.pHeader, uState, pRing)) [[unlikely]]
        return ZEBU_APPEND_DAMAGED;
    if (line.uLength >= pRing->free()) [[unlikely]]
        return ZEBU_LoadAreaState(line.pHeader) == uState ? ZEBU_APPEND_NO_ROOM : ZEBU_APPEND_AGAIN;
    const bool bWithin = uint64_t{pRing->uSize} + sizeof(tagZEBU_AREA_HEADER) <= line.uMapLength &&
                         line.uLength <= pRing->uSize;
    if (bWithin || fs_isMapped(*pRing, line.uMapLength, line.uLength)) [[likely]]
        return ZEBU_APPEND_STORED;
    return ZEBU_APPEND_DAMAGED;
}

// ---- A claimed line ------------------------------------------------------------------------------

// Whether a state is still the claimed one. A word of somebody else's that was stored over the library's does
// not end the claim: only appends count.
static inline bool fs_isClaimed(uint64_t uState, uint64_t uClaim)
{
    return uState == uClaim || (uClaim != 0 && ZEBU_OffsetOf(uState) == ZEBU_OffsetOf(uClaim) &&
                                !ZEBU_IsHolder(ZEBU_GuardOf(uState)));
}

enum : uint32_t { cs_uPiece = 256 };

static inline void fs_copyPiece(Line line, uint32_t uTo, uint32_t uFrom, uint32_t uCount)
{
    char* const pTo = reinterpret_cast<char*>(line.pHeader + 1) + uTo;
    if (line.pData)
        memcpy(pTo, line.pData + uFrom, uCount);
    else
        memset(pTo, ' ', uCount);
}

// Copies from `uFrom` on to the place `uTo` of the ring. Looks before each piece whether the claim still
// stands: a writer that was stopped here and passed over must not write on. False then.
[[gnu::noinline]] static bool fs_copyPieces(const Append& append, uint32_t uTo, uint32_t uFrom, uint32_t uEnd)
{
    while (uFrom < uEnd) {
        const uint32_t uNow = uEnd - uFrom < cs_uPiece ? uEnd - uFrom : cs_uPiece;
        const uint64_t uState = __atomic_load_n(ZEBU_AreaStateOf(append.line.pHeader), __ATOMIC_RELAXED);
        if (!fs_isClaimed(uState, append.uClaim.load(std::memory_order_relaxed)))
            return false;
        fs_copyPiece(append.line, uTo, uFrom, uNow);
        uTo += uNow;
        uFrom += uNow;
    }
    return true;
}

// The whole line: up to the end of the data, and the rest from their beginning.
[[gnu::noinline]] static bool fs_copyLine(const Append& append, tagZEBU_AREA_RING ring)
{
    const uint32_t uLength = append.line.uLength;
    const uint32_t uToEnd = ring.uSize - ring.uWrite;
    const uint32_t uFirst = uLength < uToEnd ? uLength : uToEnd;
    return fs_copyPieces(append, ring.uWrite, 0, uFirst) && fs_copyPieces(append, 0, uFirst, uLength);
}

// A blank line ends like any other.
[[gnu::noinline, gnu::cold]] static void fs_endBlanks(const Append& append, tagZEBU_AREA_RING ring)
{
    const Line& line = append.line;
    char* const pRing = reinterpret_cast<char*>(line.pHeader + 1);
    for (uint32_t i = line.uLength < 2 ? 1 : 2; i > 0; --i) {
        const uint64_t uAt = uint64_t{ring.uWrite} + line.uLength - i;
        pRing[uAt < ring.uSize ? uAt : uAt - ring.uSize] = "\n\r"[i - 1];
    }
}

// Somebody else's word that came over the claim is the one to be left there. Bounded, since who stores it may
// do so for ever.
[[gnu::noinline, gnu::cold]] static Copy fs_publishOver(const Append& append, uint64_t uSeen, uint32_t uNext)
{
    for (int i = 0; i < 1000; ++i) {
        if (!fs_isClaimed(uSeen, append.uClaim.load(std::memory_order_relaxed)))
            return Copy::Lost;
        if (ZEBU_ChangeAreaState(append.line.pHeader, &uSeen, ZEBU_AreaState(uNext, ZEBU_GuardOf(uSeen))))
            return Copy::Published;
    }
    return Copy::Lost;
}

// Copies a line whose claim stands in the header and publishes it, with `uAfter` as the guard. Done by the
// append itself, or by a handler that interrupted it; all of it once more then, since nobody knows how far
// the copy is. The room is looked at again under the guard: before, it was that of an offset that may have
// gone round the ring since.
static inline Copy fs_copyAndPublish(const Append& append, Line line, tagZEBU_AREA_RING ring, uint32_t uAfter)
{
    ring.uRead = __atomic_load_n(&line.pHeader->uReadOffset, __ATOMIC_ACQUIRE);
    if (line.uLength >= ring.free()) [[unlikely]]
        return Copy::NoRoom;
    if (line.uLength <= cs_uPiece && line.uLength <= ring.uSize - ring.uWrite) [[likely]]
        fs_copyPiece(line, ring.uWrite, 0, line.uLength);
    else if (!fs_copyLine(append, ring))
        return Copy::Lost;
    if (!line.pData) [[unlikely]]
        fs_endBlanks(append, ring);
    uint64_t uSeen = append.uClaim.load(std::memory_order_relaxed);
    if (ZEBU_ChangeAreaState(line.pHeader, &uSeen, ZEBU_AreaState(ring.next(line.uLength), uAfter)))
        [[likely]]
        return Copy::Published;
    return fs_publishOver(append, uSeen, ring.next(line.uLength));
}

// Puts the claim into the header in place of `uSeen`. It is in the record before that, so that a handler
// knows it whichever of the two it sees.
static inline bool fs_claim(Append& append, Line line, uint64_t uSeen, uint32_t uGuard)
{
    const uint64_t uClaim = ZEBU_AreaState(ZEBU_OffsetOf(uSeen), uGuard | ZEBU_ClassOf(line.uLength));
    append.uClaim.store(uClaim, std::memory_order_relaxed);
    fs_inOrder();
    if (!ZEBU_ChangeAreaState(line.pHeader, &uSeen, uClaim)) {
        append.uClaim.store(0, std::memory_order_relaxed);
        return false;
    }
    append.bTaken.store(true, std::memory_order_relaxed);
    return true;
}

static void fs_disclaim(Append& append)
{
    append.bTaken.store(false, std::memory_order_relaxed);
    append.uClaim.store(0, std::memory_order_relaxed);
}

// ---- An append with a guard of its own -----------------------------------------------------------

// The number of a hold: the same for two that are held at about the same time only by chance. Threads of
// other processes, and of the child of a fork, count from elsewhere.
[[gnu::noinline, gnu::cold]] static uint32_t fs_firstNumber()
{
    const auto uThread = static_cast<uint64_t>(syscall(SYS_gettid)) << 32;
    return static_cast<uint32_t>(
               ((uThread ^ reinterpret_cast<uintptr_t>(&cs_uNumber)) * 0x9E3779B97F4A7C15) >> 32) |
           1;
}

static inline uint32_t fs_newHold()
{
    uint32_t uNumber = cs_uNumber;
    if (uNumber == 0) [[unlikely]]
        uNumber = fs_firstNumber();
    cs_uNumber = uNumber + 0x9E3779BA; // even: never 0 again
    return ZEBU_HoldOfNumber(uNumber >> 19);
}

// Frees the guard where it is still held: no room was found, or handlers on this thread have published what
// there was and left it to the append that took it.
[[gnu::noinline, gnu::cold]] static void fs_letGo(tagZEBU_AREA_HEADER* pHeader, uint32_t uHold,
                                                  uint32_t uAfter)
{
    uint64_t uSeen = ZEBU_LoadAreaState(pHeader);
    while (ZEBU_HoldOf(ZEBU_GuardOf(uSeen)) == uHold &&
           !ZEBU_ChangeAreaState(pHeader, &uSeen, ZEBU_AreaState(ZEBU_OffsetOf(uSeen), uAfter)))
        ;
}

// Takes the guard in place of `uSeen`, stores the line, and leaves `uAfter` as the guard.
static inline ZEBUAppend fs_storeAlone(Append& append, Line line, uint64_t uSeen,
                                       const tagZEBU_AREA_RING& ring, uint32_t uAfter)
{
    const uint32_t uHold = fs_newHold();
    if (!fs_claim(append, line, uSeen, uHold))
        return ZEBU_APPEND_AGAIN;
    const Copy eCopy = fs_copyAndPublish(append, line, ring, uAfter);
    if (eCopy == Copy::Published) [[likely]]
        return ZEBU_APPEND_STORED;
    fs_letGo(line.pHeader, uHold, uAfter);
    if (append.bStored.load(std::memory_order_relaxed))
        return ZEBU_APPEND_STORED;
    fs_disclaim(append);
    return eCopy == Copy::NoRoom ? ZEBU_APPEND_NO_ROOM : ZEBU_APPEND_AGAIN;
}

// ---- An append that interrupted another ----------------------------------------------------------

// Whether a state goes on standing for some microseconds.
[[gnu::noinline, gnu::cold]] static bool fs_stands(tagZEBU_AREA_HEADER* pHeader, uint64_t uState)
{
    for (int i = 0; i < 500; ++i) {
        if (ZEBU_LoadAreaState(pHeader) != uState)
            return false;
        ZEBU_Pause();
    }
    return true;
}

// Whether the guard is held by an append that the calling one has interrupted. Between the store of the claim
// and the note that it stood in the header only the header tells, and one of 8,192 words of others looks like
// the claim; but theirs goes away.
static bool fs_isHeldBelow(const Append& append, uint64_t uState)
{
    const uint32_t uHold = ZEBU_HoldOf(ZEBU_GuardOf(uState));
    bool bPerhaps = false;
    for (const Append* p = append.pOuter; p; p = p->pOuter) {
        const uint64_t uClaim = p->uClaim.load(std::memory_order_relaxed);
        if (p->line.pHeader != append.line.pHeader || ZEBU_HoldOf(ZEBU_GuardOf(uClaim)) != uHold)
            continue;
        if (p->bTaken.load(std::memory_order_relaxed))
            return true;
        bPerhaps = bPerhaps || uClaim == uState;
    }
    return bPerhaps && fs_stands(append.line.pHeader, uState);
}

// Stores the line that was interrupted in this state, and keeps the guard for whoever took it. Where it has
// no room after all, its claim is taken back, so that its append sees that the state has changed.
static ZEBUAppend fs_finishInterrupted(const Append& append, uint64_t uState)
{
    const uint32_t uHold = ZEBU_HoldOf(ZEBU_GuardOf(uState));
    for (Append* p = append.pOuter; p; p = p->pOuter) {
        if (p->line.pHeader != append.line.pHeader || p->uClaim.load(std::memory_order_relaxed) != uState)
            continue;
        p->bTaken.store(true, std::memory_order_relaxed); // known from here on, whatever state follows
        tagZEBU_AREA_RING ring;
        const bool bRoom = fs_findRoom(p->line, uState, &ring) == ZEBU_APPEND_STORED;
        const Copy eCopy = bRoom ? fs_copyAndPublish(*p, p->line, ring, uHold) : Copy::NoRoom;
        if (eCopy == Copy::Published)
            p->bStored.store(true, std::memory_order_relaxed);
        else if (eCopy == Copy::NoRoom)
            (void)ZEBU_ChangeAreaState(p->line.pHeader, &uState,
                                       ZEBU_AreaState(ZEBU_OffsetOf(uState), uHold));
        break;
    }
    return ZEBU_APPEND_AGAIN;
}

// Stores a line under the guard that an interrupted append holds, and keeps it: the rest of a copy that
// stands still below may go over a line that was already read, as long as nobody else has written there.
[[gnu::noinline, gnu::cold]] static ZEBUAppend fs_storeWithin(Append& append, uint64_t uState,
                                                              const tagZEBU_AREA_RING& ring)
{
    const uint32_t uGuard = ZEBU_GuardOf(uState);
    if ((uGuard & ZEBU_GUARD_CLASS) != 0)
        return fs_finishInterrupted(append, uState);
    if (!fs_claim(append, append.line, uState, uGuard))
        return ZEBU_APPEND_AGAIN;
    const Copy eCopy = fs_copyAndPublish(append, append.line, ring, uGuard);
    if (eCopy == Copy::Published || append.bStored.load(std::memory_order_relaxed))
        return ZEBU_APPEND_STORED;
    if (eCopy == Copy::NoRoom) {
        uint64_t uSeen = append.uClaim.load(std::memory_order_relaxed);
        (void)ZEBU_ChangeAreaState(append.line.pHeader, &uSeen, uState);
    }
    fs_disclaim(append);
    return eCopy == Copy::NoRoom ? ZEBU_APPEND_NO_ROOM : ZEBU_APPEND_AGAIN;
}

// ---- Passing over --------------------------------------------------------------------------------

// Passes over a holder that has stood still: the space that it may still write becomes a blank line. That is
// an append like any other, and may be interrupted or passed over itself.
[[gnu::noinline, gnu::cold]] static void fs_passOver(const Append& append, uint64_t uState,
                                                     const tagZEBU_AREA_RING& ring)
{
    const uint64_t uSpace = ZEBU_SpaceOf(ZEBU_GuardOf(uState));
    const uint64_t uRoom = ring.free() > 1 ? ring.free() - 1 : 0; // the holder had no more
    const uint64_t uBlanks = uSpace < uRoom ? uSpace : uRoom;
    if (uBlanks == 0) {
        (void)ZEBU_ChangeAreaState(append.line.pHeader, &uState, ZEBU_AreaState(ring.uWrite, 0));
        return;
    }
    Append blanks({append.line.pHeader, append.line.uMapLength, static_cast<uint32_t>(uBlanks), nullptr});
    tagZEBU_AREA_RING found;
    if (fs_findRoom(blanks.line, uState, &found) == ZEBU_APPEND_STORED)
        (void)fs_storeAlone(blanks, blanks.line, uState, found, 0);
    else
        (void)ZEBU_ChangeAreaState(append.line.pHeader, &uState, ZEBU_AreaState(ring.uWrite, 0));
}

// ---- The append ----------------------------------------------------------------------------------

// Where the guard was not to be had at once.
[[gnu::noinline, gnu::cold]] static ZEBUAppend fs_appendInTurn(Append& append)
{
    ZEBUAreaWait wait;
    for (;;) {
        const uint64_t uState = ZEBU_LoadAreaState(append.line.pHeader);
        tagZEBU_AREA_RING ring;
        ZEBUAppend eResult = fs_findRoom(append.line, uState, &ring);
        if (eResult == ZEBU_APPEND_STORED) {
            eResult = ZEBU_APPEND_AGAIN;
            if (!ZEBU_IsHolder(ZEBU_GuardOf(uState)))
                eResult = fs_storeAlone(append, append.line, uState, ring, ZEBU_GuardOf(uState));
            else if (append.pOuter && fs_isHeldBelow(append, uState))
                eResult = fs_storeWithin(append, uState, ring);
        }
        if (eResult != ZEBU_APPEND_AGAIN)
            return eResult;
        const ZEBUAreaWait::Turn eTurn = wait.turn(append.line.pHeader, uState);
        if (eTurn == ZEBUAreaWait::GIVE_UP)
            return ZEBU_APPEND_NO_ROOM;
        if (eTurn == ZEBUAreaWait::PASS_OVER)
            fs_passOver(append, uState, ring);
    }
}

// There is no array in it for a protector of the stack.
__attribute__((no_stack_protector)) ZEBUAppend ZEBU_AppendToArea(void* pMap, uint32_t uMapLength,
                                                                 const void* pData, uint32_t uLength)
{
    const Line line = {static_cast<tagZEBU_AREA_HEADER*>(pMap), uMapLength, uLength,
                       static_cast<const char*>(pData)};
    Append append(line);
    const uint64_t uState = ZEBU_LoadAreaState(line.pHeader);
    const uint32_t uGuard = ZEBU_GuardOf(uState);
    tagZEBU_AREA_RING ring;
    ZEBUAppend eResult = fs_findRoom(line, uState, &ring); // a full area is not worth the guard
    if (eResult == ZEBU_APPEND_STORED) [[likely]]
        eResult =
            ZEBU_IsHolder(uGuard) ? ZEBU_APPEND_AGAIN : fs_storeAlone(append, line, uState, ring, uGuard);
    return eResult == ZEBU_APPEND_AGAIN ? fs_appendInTurn(append) : eResult;
}

void ZEBU_LeaveAppendsToParent()
{
    for (Append* p = cs_pInnermost; p; p = p->pOuter) {
        fs_disclaim(*p);
        p->bStored.store(true, std::memory_order_relaxed);
    }
    cs_uNumber = 0;
    ZEBU_ForgetAreaWaits();
}
