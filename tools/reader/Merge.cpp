// tools/reader/Merge.cpp -- takes the earliest of the next records, and asks idle sources seldom.
#include "tools/reader/Merge.h"

#include <algorithm>
#include <utility>

namespace {
constexpr size_t cs_uBuffers = size_t{8} * 1024 * 1024; // for all sources together
constexpr unsigned cs_uClockEvery = 64;                 // records between two looks at the clock
} // namespace

void ZEBUMerge::add(const std::string& strName, std::unique_ptr<ZEBUSource> pSource, const ZEBUPlace* pFrom,
                    ZEBUTime lBefore)
{
    m_entries.push_back(std::make_unique<Entry>(strName, std::move(pSource), m_entries.size()));
    m_entries.back()->records.park();
    m_entries.back()->lOldest = lBefore;
    if (pFrom)
        m_entries.back()->bShown = pFrom->bShown;
}

void ZEBUMerge::shareBuffer()
{
    for (const auto& pEntry : m_entries)
        pEntry->records.setBuffer(cs_uBuffers / m_entries.size());
}

// The place behind the record that was handed out last, before another is fetched from its source.
void ZEBUMerge::notePlace()
{
    const ZEBUPlace place = m_pLast->records.place();
    if (place.uOffset == 0)
        return;
    m_pLast->place = place;
    m_pLast->place.bShown = m_pLast->bShown;
}

void ZEBUMerge::notePlaces(ZEBUCursor* pCursor)
{
    if (m_bTaken)
        notePlace();
    for (const auto& pEntry : m_entries)
        if (pEntry->place.uOffset > 0)
            pCursor->set(pEntry->strName, pEntry->place);
}

ZEBUNext ZEBUMerge::next(ZEBURecord* pRecord)
{
    if (m_bTaken) {
        if (m_bPlaces)
            notePlace();
        fetch(*m_pLast);
    }
    m_bTaken = false;
    const bool bAsked = m_uSinceLook++ % cs_uClockEvery == 0 && ZEBU_Milliseconds() >= m_lNextLook;
    if (bAsked)
        askIdle();
    Entry* pEntry = earliest();
    if (!pEntry && !bAsked) {
        askIdle();
        pEntry = earliest();
    }
    if (!pEntry)
        return isAnyIdle() ? ZEBUNext::Idle : ZEBUNext::End;
    if (pEntry->lOldest == ZEBU_TIME_NONE)
        pEntry->lOldest = pEntry->record.lTime;
    *pRecord = pEntry->record;
    m_pLast = pEntry;
    m_bTaken = true;
    return ZEBUNext::Record;
}

void ZEBUMerge::fetch(Entry& entry)
{
    if (m_pReading && m_pReading != &entry)
        m_pReading->records.park();
    m_pReading = &entry;
    entry.eState = entry.records.next(&entry.record);
    m_bSorted = m_bSorted && &entry == m_pLast && entry.eState == ZEBUNext::Record;
}

// A source that has nothing new costs system calls to ask, so a busy one beside it must not make it asked for
// each record.
void ZEBUMerge::askIdle()
{
    for (const auto& pEntry : m_entries)
        if (pEntry->eState == ZEBUNext::Idle)
            fetch(*pEntry);
    m_lNextLook = ZEBU_Milliseconds() + m_iInterval;
}

// Mostly the same source goes on, so the earliest of the others is kept: that spares looking at all of them.
ZEBUMerge::Entry* ZEBUMerge::earliest()
{
    const auto isBefore = [](const Entry* pA, const Entry* pB) {
        return pA->record.lTime < pB->record.lTime ||
               (pA->record.lTime == pB->record.lTime && pA->uIndex < pB->uIndex);
    };
    if (m_bSorted && (!m_pSecond || isBefore(m_pLast, m_pSecond)))
        return m_pLast;
    Entry* pEarliest = nullptr;
    m_pSecond = nullptr;
    for (const auto& pEntry : m_entries) {
        if (pEntry->eState != ZEBUNext::Record)
            continue;
        if (!pEarliest || isBefore(pEntry.get(), pEarliest))
            m_pSecond = std::exchange(pEarliest, pEntry.get());
        else if (!m_pSecond || isBefore(pEntry.get(), m_pSecond))
            m_pSecond = pEntry.get();
    }
    m_bSorted = pEarliest != nullptr;
    return pEarliest;
}

bool ZEBUMerge::isAnyIdle() const
{
    return std::any_of(m_entries.begin(), m_entries.end(),
                       [](const auto& pEntry) { return pEntry->eState == ZEBUNext::Idle; });
}

bool ZEBUMerge::reachesBackTo(ZEBUTime lTime) const
{
    return std::all_of(m_entries.begin(), m_entries.end(), [&](const auto& pEntry) {
        return pEntry->lOldest != ZEBU_TIME_NONE && pEntry->lOldest <= lTime;
    });
}

bool ZEBUMerge::hasFailed() const
{
    return std::any_of(m_entries.begin(), m_entries.end(),
                       [](const auto& pEntry) { return pEntry->records.hasFailed(); });
}
