#include "tools/Merge.h"

#include <algorithm>

void ZEBUMerge::add(std::unique_ptr<ZEBUSource> pSource)
{
    m_entries.push_back(std::make_unique<Entry>(std::move(pSource)));
}

ZEBUNext ZEBUMerge::next(const ZEBUFilter& filter, ZEBURecord* pRecord)
{
    for (;;) {
        bool bIdle = false;
        for (const auto& pEntry : m_entries) {
            if (pEntry->eState == ZEBUNext::Idle)
                pEntry->eState = pEntry->records.next(&pEntry->record);
            bIdle = bIdle || pEntry->eState == ZEBUNext::Idle;
        }
        Entry* pEntry = earliest();
        if (!pEntry)
            return bIdle ? ZEBUNext::Idle : ZEBUNext::End;
        pEntry->eState = ZEBUNext::Idle; // fetch another before the next choice
        if (pEntry->lOldest == ZEBU_TIME_NONE)
            pEntry->lOldest = pEntry->record.lTime;
        pEntry->bShown = filter.matches(pEntry->record, pEntry->bShown);
        if (!pEntry->bShown)
            continue;
        *pRecord = pEntry->record;
        m_pLast = pEntry;
        return ZEBUNext::Record;
    }
}

ZEBUMerge::Entry* ZEBUMerge::earliest()
{
    Entry* pEarliest = nullptr;
    for (const auto& pEntry : m_entries)
        if (pEntry->eState == ZEBUNext::Record &&
            (!pEarliest || pEntry->record.lTime < pEarliest->record.lTime))
            pEarliest = pEntry.get();
    return pEarliest;
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
