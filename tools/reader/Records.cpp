// tools/reader/Records.cpp -- gathers lines until one begins another record.
#include "tools/reader/Records.h"

#include <algorithm>
#include <string.h>
#include <utility>

static constexpr size_t cs_uBuffer = size_t{256} * 1024;
static constexpr size_t cs_uBufferMin = size_t{8} * 1024;
static_assert(cs_uBuffer - 2 * ZEBU_RECORD_MAX >= cs_uBuffer / 4, "the largest leaves room to read on");

namespace {
// A text as a source.
class ZEBUBytes final : public ZEBUSource
{
public:
    explicit ZEBUBytes(std::string_view svBytes) : ZEBUSource([](const std::string&) {}), m_svBytes(svBytes)
    {
    }
    ZEBURead read(char* pBuffer, size_t uSize, size_t* puRead) override
    {
        *puRead = m_svBytes.copy(pBuffer, uSize);
        m_svBytes.remove_prefix(*puRead);
        return *puRead > 0 ? ZEBURead::Bytes : ZEBURead::End;
    }
    const std::string& file() const override { return m_strFile; }

private:
    std::string_view m_svBytes;
    const std::string m_strFile;
};
} // namespace

ZEBURecords::ZEBURecords(std::unique_ptr<ZEBUSource> pSource, bool bForeign)
    : m_pSource(std::move(pSource)), m_bForeign(bForeign), m_uSize(cs_uBuffer),
      m_bAfterLine(m_pSource->isResumed())
{
}

void ZEBURecords::setBuffer(size_t uSize)
{
    m_uSize = std::clamp(uSize, cs_uBufferMin, cs_uBuffer);
}

ZEBUNext ZEBURecords::next(ZEBURecord* pRecord)
{
    if (m_buffer.empty())
        m_buffer.resize(m_uSize + 1);
    for (;;) {
        if (cut(pRecord))
            return ZEBUNext::Record;
        if (m_bFileEnd) {
            m_uBegin = m_uGathered = m_uPiece = m_uLooked = m_uEnd = 0;
            m_bAfterLine = m_bFileEnd = false;
        }
        if (m_uFilesLost > 0) {
            *pRecord = {};
            pRecord->eKind = ZEBURecordKind::Gap;
            pRecord->lTime = m_lTime;
            pRecord->uFilesLost = std::exchange(m_uFilesLost, 0);
            m_uFileOffset = 0;
            return ZEBUNext::Record;
        }
        if (m_bEnd)
            return ZEBUNext::End;
        const ZEBURead eRead = fill();
        if (eRead == ZEBURead::Gap)
            cutOff();
        m_bEnd = eRead == ZEBURead::End;
        m_bFileEnd = m_bEnd || eRead == ZEBURead::FileEnd || eRead == ZEBURead::Gap;
        if (eRead != ZEBURead::Idle)
            continue;
        if (m_uGathered == m_uBegin)
            return ZEBUNext::Idle;
        emit(m_uGathered, pRecord);
        return ZEBUNext::Record;
    }
}

// Gathers lines until one begins another record; false when that needs more bytes.
bool ZEBURecords::cut(ZEBURecord* pRecord)
{
    while (findPiece()) {
        const bool bEmpty = m_uGathered == m_uBegin;
        if (!bEmpty && (!extends() || m_uPiece - m_uBegin > ZEBU_RECORD_MAX)) {
            emit(m_uGathered, pRecord);
            return true;
        }
        if (bEmpty) {
            m_eFirst = m_ePiece;
            m_firstLine = m_pieceLine;
        }
        m_eLast = m_ePiece;
        m_uGathered = m_uPiece;
        if (m_uGathered - m_uBegin >= ZEBU_RECORD_MAX) {
            emit(m_uGathered, pRecord);
            return true;
        }
    }
    if (!m_bFileEnd || m_uGathered == m_uBegin)
        return false;
    emit(m_uGathered, pRecord);
    return true;
}

// Finds the line behind what was gathered. One that is as long as a record may be is taken in pieces, and
// at the end of a file the line may lack its end.
bool ZEBURecords::findPiece()
{
    if (m_uPiece > m_uGathered)
        return true;
    const size_t uLimit = std::min(m_uEnd, m_uGathered + ZEBU_RECORD_MAX);
    m_uLooked = std::max(m_uLooked, m_uGathered);
    const void* pFeed = memchr(m_buffer.data() + m_uLooked, '\n', uLimit - m_uLooked);
    m_uLooked = pFeed ? static_cast<size_t>(static_cast<const char*>(pFeed) + 1 - m_buffer.data()) : uLimit;
    if (!pFeed && uLimit - m_uGathered < ZEBU_RECORD_MAX && !(m_bFileEnd && uLimit > m_uGathered))
        return false;
    m_uPiece = m_uLooked;
    const std::string_view svPiece = bytes(m_uGathered, m_uPiece);
    m_ePiece = ZEBU_ClassifyPiece(svPiece, &m_pieceLine);
    if (!m_bForeign || m_ePiece != ZEBUPiece::Text)
        return true;
    const size_t uHeader = ZEBU_FindLineHeader(svPiece);
    if (uHeader != svPiece.npos)
        m_uPiece = m_uLooked = m_uGathered + uHeader;
    return true;
}

bool ZEBURecords::extends() const
{
    switch (m_ePiece) {
    case ZEBUPiece::Text:
        return m_eFirst == ZEBUPiece::Trace || m_eFirst == ZEBUPiece::Text;
    case ZEBUPiece::FileHeader:
        return m_eLast == ZEBUPiece::StartHeader;
    case ZEBUPiece::Caption:
        return m_eLast == ZEBUPiece::FileHeader;
    default:
        return false;
    }
}

void ZEBURecords::emit(size_t uEnd, ZEBURecord* pRecord)
{
    *pRecord = {};
    pRecord->svBytes = bytes(m_uBegin, uEnd);
    pRecord->bLineEnd = pRecord->svBytes.ends_with('\n') || uEnd < m_uEnd || !m_bFileEnd;
    ZEBUTime lTime = ZEBU_TIME_NONE;
    if (m_eFirst == ZEBUPiece::Trace) {
        pRecord->eKind = ZEBURecordKind::Line;
        pRecord->line = m_firstLine;
        if (m_firstLine.svTime.data() == pRecord->svBytes.data() + ZEBU_COL_TIME)
            pRecord->line.svBody = ZEBU_WithoutLineEnd(pRecord->svBytes.substr(ZEBU_LINE_HEADER));
        else // it was moved since it was parsed
            (void)ZEBU_ParseLine(pRecord->svBytes, &pRecord->line);
        lTime = pRecord->line.lTime;
    } else if (m_eFirst != ZEBUPiece::Text) {
        pRecord->eKind = ZEBURecordKind::Header;
        noteHeader(pRecord->svBytes);
        const size_t uFirst = m_eFirst == ZEBUPiece::StartHeader ? pRecord->svBytes.find('\n') + 1 : 0;
        if (m_pSource->hasTimelyHeaders())
            lTime = ZEBU_HeaderTime(pRecord->svBytes.substr(uFirst));
    } else {
        pRecord->bContinues = m_bAfterLine;
    }
    if (lTime != ZEBU_TIME_NONE)
        m_lTime = lTime;
    pRecord->lTime = m_lTime;
    m_bAfterLine = pRecord->eKind != ZEBURecordKind::Header;
    m_uLastSize = uEnd - m_uBegin;
    m_uBegin = uEnd;
}

// Reads behind what the buffer holds. The record that is gathered stays whole. The last byte of the buffer
// stays zero, for users of a record who know its length but call what looks for an end too.
ZEBURead ZEBURecords::fill()
{
    if (room() < m_buffer.size() / 4) {
        memmove(m_buffer.data(), m_buffer.data() + m_uBegin, m_uEnd - m_uBegin);
        m_uEnd -= m_uBegin;
        m_uGathered -= m_uBegin;
        m_uLooked -= m_uBegin;
        m_uPiece = 0;
        m_uBegin = 0;
    }
    if (room() < m_buffer.size() / 4)
        m_buffer.resize(2 * (m_buffer.size() - 1) + 1);
    size_t uRead = 0;
    const ZEBURead eRead = m_pSource->read(m_buffer.data() + m_uEnd, room(), &uRead);
    m_uEnd += uRead;
    if (eRead == ZEBURead::Bytes)
        noteFile();
    return eRead;
}

// What was begun stays without its end for good.
void ZEBURecords::cutOff()
{
    m_uFileOffset -= m_uFileOffset > 0 ? m_uEnd - m_uGathered : 0;
    m_uEnd = m_uLooked = m_uGathered;
    m_uFilesLost = m_pSource->filesLost();
}

// By the time a record is handed out the source may be in another file.
void ZEBURecords::noteFile()
{
    if (m_strFile != m_pSource->file())
        m_strFile = m_pSource->file();
    const ZEBUTraceFile* pFile = m_pSource->present(&m_uFileNumber);
    m_uFileOffset = pFile ? pFile->offset() : 0;
    if (!pFile || m_strBeginning == pFile->beginning())
        return;
    m_strBeginning = pFile->beginning();
    m_uBeginningHash = ZEBU_Fingerprint(m_strBeginning);
    noteHeader(m_strBeginning);
}

// Takes host and zone out of a header. A reader that goes on within a file has not seen the one at its
// beginning.
void ZEBURecords::noteHeader(std::string_view svHeader)
{
    const std::string_view svLine = ZEBU_FindFileHeader(svHeader);
    if (svLine.empty())
        return;
    m_strHost = ZEBU_HeaderHost(svLine);
    m_strZone = ZEBU_HeaderZone(svLine);
}

ZEBUPlace ZEBURecords::place() const
{
    ZEBUPlace place;
    if (m_uFileOffset == 0)
        return place;
    place.uFile = m_uFileNumber;
    place.uOffset = m_uFileOffset - (m_uEnd - m_uBegin);
    place.uBeginning = static_cast<uint32_t>(std::min<uint64_t>(m_strBeginning.size(), place.uOffset));
    place.uBeginningHash = place.uBeginning == m_strBeginning.size()
                               ? m_uBeginningHash
                               : ZEBU_Fingerprint(m_strBeginning.substr(0, place.uBeginning));
    place.uRecord = static_cast<uint32_t>(m_uLastSize);
    place.uRecordHash =
        ZEBU_Fingerprint(bytes(m_uBegin - m_uLastSize, m_uBegin).substr(0, ZEBU_PLACE_LINE_MAX));
    return place;
}

void ZEBU_ForEachRecord(std::string_view svText,
                        const std::function<void(const ZEBURecord& record, size_t uOffset)>& take)
{
    ZEBURecords records(std::make_unique<ZEBUBytes>(svText));
    ZEBURecord record;
    for (size_t u = 0; records.next(&record) == ZEBUNext::Record; u += record.svBytes.size())
        take(record, u);
}
