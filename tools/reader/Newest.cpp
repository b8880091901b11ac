// tools/reader/Newest.cpp -- turns the order of the records of a piece around, and takes the latest of the
// sources'.
#include "tools/reader/Newest.h"

#include <algorithm>
#include <errno.h>
#include <string.h>
#include <utility>

namespace {
constexpr size_t cs_uPieces = size_t{4} * 1024 * 1024; // for all sources together
constexpr size_t cs_uPieceMin = size_t{8} * 1024;
constexpr size_t cs_uPieceMax = size_t{64} * 1024;

const ZEBUWarn cs_noWarning = [](const std::string&) {};

// The number of the file that a ring writes.
unsigned fs_newest(const std::vector<ZEBUSegment>& segments)
{
    return segments.empty() ? 0 : segments.back().uFile;
}
} // namespace

ZEBUBackward::ZEBUBackward(const std::string& strName, std::vector<ZEBUSegment> segments, size_t uPiece,
                           ZEBUTime lSince, const ZEBUWarn& warnUser)
    : m_strName(strName), m_lSince(lSince), m_warn(warnUser), m_pieces(std::move(segments), uPiece)
{
}

bool ZEBUBackward::next(ZEBURecord* pRecord)
{
    if (m_uNext == m_uGroupEnd) {
        while (m_uGroup == 0 && m_eState == ZEBUPieces::Piece)
            if (!fill())
                return finish(m_eState, pRecord);
        if (m_uGroup == 0)
            return false;
        m_uGroupEnd = m_uGroup;
        do
            --m_uGroup;
        while (m_uGroup > 0 && m_cuts[m_uGroup].bContinues);
        m_uNext = m_uGroup;
    }
    fetch(m_cuts[m_uNext++], pRecord);
    return true;
}

// Cuts the piece before the last one. False when there is none.
bool ZEBUBackward::fill()
{
    const bool bOldEnough = m_lOldest != ZEBU_TIME_NONE && m_lOldest < m_lSince;
    m_eState = bOldEnough ? ZEBUPieces::Beginning : m_pieces.next();
    m_pieces.park();
    if (m_eState != ZEBUPieces::Piece)
        return false;
    const std::string_view svHeader = ZEBU_FindFileHeader(m_pieces.beginning());
    m_strHost = svHeader.empty() ? std::string_view() : ZEBU_HeaderHost(svHeader);
    m_strZone = svHeader.empty() ? std::string_view() : ZEBU_HeaderZone(svHeader);
    m_cuts.clear();
    ZEBU_ForEachRecord(m_pieces.text(), [&](const ZEBURecord& record, size_t uOffset) {
        m_cuts.push_back(
            {uOffset, record.svBytes.size(), record.lTime, record.eKind, record.bContinues, record.bLineEnd});
    });
    m_uGroup = m_uNext = m_uGroupEnd = m_cuts.size();
    return true;
}

// Tells why there is nothing more. Files that are gone are told of by a record.
bool ZEBUBackward::finish(ZEBUPieces::State eState, ZEBURecord* pRecord)
{
    if (eState == ZEBUPieces::Failed) {
        m_warn(m_pieces.file().path() + " cannot be read: " + strerror(errno));
        m_bFailed = true;
    }
    if (eState != ZEBUPieces::Changed)
        return false;
    m_warn(m_strName + ": the ring came round while it was read, what was older is gone");
    *pRecord = {};
    pRecord->eKind = ZEBURecordKind::Gap;
    pRecord->lTime = m_lOldest;
    pRecord->uFilesLost = m_pieces.filesLeft() + 1;
    return true;
}

void ZEBUBackward::fetch(const Cut& cut, ZEBURecord* pRecord)
{
    *pRecord = {};
    pRecord->eKind = cut.eKind;
    pRecord->svBytes = m_pieces.text().substr(cut.uOffset, cut.uSize);
    pRecord->bContinues = cut.bContinues;
    pRecord->bLineEnd = cut.bLineEnd;
    if (cut.eKind == ZEBURecordKind::Line)
        (void)ZEBU_ParseLine(pRecord->svBytes, &pRecord->line);
    if (cut.lTime != ZEBU_TIME_NONE)
        m_lOldest = cut.lTime;
    pRecord->lTime = m_lOldest;
}

// A ring that moves on between the look at its place and those at its files would have its newest lines taken
// for its oldest.
int ZEBUNewestFirst::add(const std::string& strName, const ZEBUWarn& warn)
{
    const size_t uPiece = std::clamp(cs_uPieces / m_uSources, cs_uPieceMin, cs_uPieceMax);
    int iErrno = 0;
    for (int i = 1;; ++i) {
        const auto pSource = ZEBU_OpenSource(strName, false, i == 1 ? warn : cs_noWarning, &iErrno);
        if (!pSource)
            return iErrno;
        const std::vector<ZEBUSegment> segments = pSource->segments();
        if (segments.empty() && ZEBU_SourceKind(strName) == ZEBUSourceKind::Plain)
            return ESPIPE;
        auto pEntry = std::make_unique<Entry>(strName, segments, uPiece, m_lSince, warn);
        const auto pAgain = ZEBU_OpenSource(strName, false, cs_noWarning, &iErrno);
        if (i < ZEBU_LOOKS_MAX && pAgain && fs_newest(pAgain->segments()) != fs_newest(segments))
            continue;
        pEntry->bRecord = pEntry->backward.next(&pEntry->record);
        m_entries.push_back(std::move(pEntry));
        return 0;
    }
}

bool ZEBUNewestFirst::next(ZEBURecord* pRecord)
{
    if (m_pLast)
        m_pLast->bRecord = m_pLast->backward.next(&m_pLast->record);
    if (!m_pLast || !m_pLast->bRecord || !m_pLast->record.bContinues) {
        m_pLast = nullptr;
        for (const auto& pEntry : m_entries)
            if (pEntry->bRecord && (!m_pLast || pEntry->record.lTime >= m_pLast->record.lTime))
                m_pLast = pEntry.get();
    }
    if (m_pLast)
        *pRecord = m_pLast->record;
    return m_pLast != nullptr;
}

bool ZEBUNewestFirst::hasFailed() const
{
    return std::any_of(m_entries.begin(), m_entries.end(),
                       [](const auto& pEntry) { return pEntry->backward.hasFailed(); });
}

bool ZEBUNewestFirst::reachesBackTo(ZEBUTime lTime) const
{
    return std::all_of(m_entries.begin(), m_entries.end(),
                       [&](const auto& pEntry) { return pEntry->backward.reachesBackTo(lTime); });
}
