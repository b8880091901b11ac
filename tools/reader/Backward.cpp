#include "tools/reader/Backward.h"

#include <algorithm>

#include "multilog/Record.h"

namespace {
constexpr size_t cs_uChunk = size_t{64} * 1024;
constexpr size_t cs_uChunkMax = size_t{4} * 1024 * 1024; // for a text without any line header

// A piece of a file as a source.
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

// Where the data of a file end: at its mark, if it may have one.
uint64_t fs_liveEnd(ZEBUTraceFile* pFile, const ZEBUSegment& segment)
{
    std::string strBlock(cs_uChunk, '\0');
    long lRead = 0;
    while (segment.bMark && (lRead = pFile->readLive(strBlock.data(), strBlock.size())) > 0)
        pFile->consume({strBlock.data(), static_cast<size_t>(lRead)});
    return segment.bMark ? pFile->offset() : segment.uEnd;
}

// The offset in a text of the first line that begins a record, or npos. The text begins within a line.
size_t fs_firstRecord(std::string_view svText)
{
    for (size_t u = svText.find('\n'); u != svText.npos; u = svText.find('\n', u)) {
        const std::string_view svPiece = svText.substr(++u);
        const ZEBUPiece ePiece = ZEBU_ClassifyPiece(svPiece.substr(0, svPiece.find('\n') + 1));
        if (ePiece == ZEBUPiece::Trace || ePiece == ZEBUPiece::StartHeader)
            return u;
    }
    return svText.npos;
}

struct Beginning
{
    size_t uOffset;
    bool bTimed; // the record has a time of its own
};

// The beginnings of the records of a text that count.
std::vector<Beginning> fs_beginnings(std::string_view svText, const ZEBUCounts& counts)
{
    std::vector<Beginning> beginnings;
    ZEBURecords records(std::make_unique<ZEBUBytes>(svText));
    ZEBURecord record;
    bool bCounts = false;
    for (size_t u = 0; records.next(&record) == ZEBUNext::Record; u += record.svBytes.size()) {
        bCounts = counts(record, bCounts);
        if (bCounts)
            beginnings.push_back(
                {u, record.eKind == ZEBURecordKind::Line && record.line.lTime != ZEBU_TIME_NONE});
    }
    return beginnings;
}

ZEBUPlace fs_place(const ZEBUTraceFile& file, unsigned uFile, uint64_t uOffset)
{
    char szBeginning[ZEBU_BEGINNING_MAX];
    ZEBUPlace place;
    place.uFile = uFile;
    place.uOffset = uOffset;
    const long lRead = file.readAt(0, szBeginning, std::min<uint64_t>(uOffset, sizeof szBeginning));
    place.uBeginning = static_cast<uint32_t>(std::max(lRead, 0L));
    place.uBeginningHash = ZEBU_Fingerprint({szBeginning, place.uBeginning});
    return place;
}

// Counts backwards from `uEnd` in a file. False when that cannot be done.
bool fs_countFile(const ZEBUTraceFile& file, uint64_t uEnd, size_t uWanted, const ZEBUCounts& counts,
                  ZEBULast* pLast)
{
    std::string strChunk;
    size_t uChunk = cs_uChunk;
    while (uEnd > 0 && !pLast->bFromPlace) {
        const uint64_t uFrom = uEnd - std::min<uint64_t>(uEnd, uChunk);
        strChunk.resize(uEnd - uFrom);
        if (file.readAt(uFrom, strChunk.data(), strChunk.size()) != static_cast<long>(strChunk.size()))
            return false;
        const size_t uFirst = uFrom == 0 ? 0 : fs_firstRecord(strChunk);
        if (uFirst == strChunk.npos) {
            uChunk *= 2;
            if (uChunk > cs_uChunkMax)
                return false;
            continue;
        }
        const auto beginnings = fs_beginnings(std::string_view(strChunk).substr(uFirst), counts);
        uEnd = uFrom + uFirst;
        uChunk = cs_uChunk;
        if (beginnings.size() < uWanted - pLast->uCount) {
            pLast->uCount += beginnings.size();
            continue;
        }
        // Where there is one, it begins with a record that has a time, by which others can be merged.
        size_t uStart = beginnings.size() - (uWanted - pLast->uCount);
        while (uStart > 0 && !beginnings[uStart].bTimed)
            --uStart;
        pLast->uCount += beginnings.size() - uStart;
        pLast->bFromPlace = true;
        pLast->place = fs_place(file, 0, uEnd + beginnings[uStart].uOffset);
    }
    return true;
}
} // namespace

std::optional<ZEBULast> ZEBU_FindLast(const ZEBUSource& source, size_t uCount, const ZEBUCounts& counts)
{
    ZEBULast last;
    const std::vector<ZEBUSegment> segments = source.segments();
    for (auto pSegment = segments.rbegin(); pSegment != segments.rend() && !last.bFromPlace; ++pSegment) {
        ZEBUTraceFile file;
        if (file.open(pSegment->strPath) != 0)
            return {};
        const uint64_t uEnd = fs_liveEnd(&file, *pSegment);
        if (uCount == 0) {
            last.bFromPlace = true;
            last.place = fs_place(file, 0, uEnd);
        } else if (!fs_countFile(file, uEnd, uCount, counts, &last)) {
            return {};
        }
        last.place.uFile = pSegment->uFile;
    }
    return segments.empty() ? std::nullopt : std::optional<ZEBULast>(last);
}
