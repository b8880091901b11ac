#include "tools/reader/Backward.h"

#include <algorithm>
#include <errno.h>

#include "multilog/Record.h"

namespace {
constexpr size_t cs_uPiece = size_t{64} * 1024;
constexpr size_t cs_uLookedMax = size_t{4} * 1024 * 1024; // for a text without any line header
constexpr size_t cs_uHeadersMax = 2048;                   // of a file, and its first line

std::string fs_beginning(const ZEBUTraceFile& file, size_t uSize)
{
    std::string strBeginning(uSize, '\0');
    const long lRead = file.readAt(0, strBeginning.data(), strBeginning.size());
    strBeginning.resize(static_cast<size_t>(std::max(lRead, 0L)));
    return strBeginning;
}

// The end of the last line, which may be on its way.
uint64_t fs_lineEnd(const ZEBUTraceFile& file, uint64_t uEnd)
{
    char cLast = '\n';
    char szRest[ZEBU_LINE_MAX];
    if (uEnd == 0 || file.readAt(uEnd - 1, &cLast, 1) != 1)
        return uEnd;
    for (int i = 0; cLast != '\n' && file.waitForRest(i); ++i) {
        const long lRead = file.readAt(uEnd, szRest, sizeof szRest);
        const size_t uFeed = std::string_view(szRest, static_cast<size_t>(std::max(lRead, 0L))).find('\n');
        if (uFeed != std::string_view::npos)
            return uEnd + uFeed + 1;
    }
    return uEnd;
}

// Where the data of a file end: at its mark, if it may have one. Only the file of a ring can have a line on
// its way.
uint64_t fs_liveEnd(ZEBUTraceFile* pFile, const ZEBUSegment& segment)
{
    std::string strBlock(cs_uPiece, '\0');
    long lRead = 0;
    while (segment.bMark && (lRead = pFile->readLive(strBlock.data(), strBlock.size())) > 0)
        pFile->consume({strBlock.data(), static_cast<size_t>(lRead)});
    if (segment.bMark)
        return pFile->offset();
    return segment.uFile > 0 ? fs_lineEnd(*pFile, segment.uEnd) : segment.uEnd;
}

// The offset in a text of the first line that begins a record, or npos. The text begins within a line. What
// has a time of its own comes first: what follows it has that time, and others can be merged by it.
size_t fs_firstRecord(std::string_view svText)
{
    size_t uOther = svText.npos;
    for (size_t u = svText.find('\n'); u != svText.npos; u = svText.find('\n', u)) {
        const std::string_view svPiece = svText.substr(++u);
        ZEBULine line;
        const bool bLine = ZEBU_ParseLine(svPiece.substr(0, svPiece.find('\n') + 1), &line);
        if (bLine && line.lTime != ZEBU_TIME_NONE)
            return u;
        if (uOther == svText.npos && (bLine || ZEBU_ClassifyPiece(svPiece.substr(
                                                   0, svPiece.find('\n') + 1)) == ZEBUPiece::StartHeader))
            uOther = u;
    }
    return uOther;
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
    bool bCounts = false;
    ZEBU_ForEachRecord(svText, [&](const ZEBURecord& record, size_t uOffset) {
        bCounts = counts(record, bCounts);
        if (bCounts)
            beginnings.push_back(
                {uOffset, record.eKind == ZEBURecordKind::Line && record.line.lTime != ZEBU_TIME_NONE});
    });
    return beginnings;
}

ZEBUPlace fs_place(const ZEBUTraceFile& file, unsigned uFile, uint64_t uOffset)
{
    ZEBUPlace place;
    place.uFile = uFile;
    place.uOffset = uOffset;
    const std::string strBeginning = fs_beginning(file, std::min<uint64_t>(uOffset, ZEBU_BEGINNING_MAX));
    place.uBeginning = static_cast<uint32_t>(strBeginning.size());
    place.uBeginningHash = ZEBU_Fingerprint(strBeginning);
    return place;
}

// The end of the first line of a file, 0 when none is found. What stands behind a mark is of another cycle.
uint64_t fs_firstLine(const ZEBUTraceFile& file, const ZEBUSegment& segment, ZEBULine* pLine)
{
    std::string strBeginning = fs_beginning(file, cs_uHeadersMax);
    if (segment.bMark)
        strBeginning.resize(std::min(("\r\n" + strBeginning).find("\r\n\x1A"), strBeginning.size()));
    else
        strBeginning.resize(std::min<uint64_t>(segment.uEnd, strBeginning.size()));
    const size_t uLine = ZEBU_FindLineHeader(strBeginning);
    const size_t uEnd = strBeginning.find('\n', uLine) + 1;
    return uEnd > 0 && ZEBU_ParseLine(std::string_view(strBeginning).substr(uLine), pLine) ? uEnd : 0;
}

// The end of a source.
std::optional<ZEBULast> fs_findEnd(const ZEBUSegment& segment)
{
    ZEBULast last;
    ZEBUTraceFile file;
    if (file.open(segment.strPath) != 0)
        return {};
    last.bFromPlace = true;
    last.place = fs_place(file, segment.uFile, fs_liveEnd(&file, segment));
    return last;
}
} // namespace

std::optional<ZEBULast> ZEBU_FindLast(const ZEBUSource& source, size_t uCount, const ZEBUCounts& counts)
{
    ZEBULast last;
    const std::vector<ZEBUSegment> segments = source.segments();
    if (segments.empty() || uCount == 0)
        return segments.empty() ? std::nullopt : fs_findEnd(segments.back());
    ZEBUPieces pieces(segments, cs_uPiece);
    ZEBUPieces::State eState;
    while ((eState = pieces.next()) == ZEBUPieces::Piece && pieces.isWhole()) {
        const auto beginnings = fs_beginnings(pieces.text(), counts);
        if (beginnings.size() < uCount - last.uCount) {
            last.uCount += beginnings.size();
            continue;
        }
        // Where there is one, it begins with a record that has a time, by which others can be merged.
        size_t uStart = beginnings.size() - (uCount - last.uCount);
        while (uStart > 0 && !beginnings[uStart].bTimed)
            --uStart;
        last.uCount += beginnings.size() - uStart;
        last.bFromPlace = true;
        last.place =
            fs_place(pieces.file(), pieces.fileNumber(), pieces.offset() + beginnings[uStart].uOffset);
        return last;
    }
    return eState == ZEBUPieces::Beginning ? std::optional<ZEBULast>(last) : std::nullopt;
}

std::optional<ZEBULast> ZEBU_FindSince(const ZEBUSource& source, ZEBUTime lTime)
{
    const std::vector<ZEBUSegment> segments = source.segments();
    for (auto pSegment = segments.rbegin(); pSegment != segments.rend(); ++pSegment) {
        ZEBUTraceFile file;
        ZEBULine line;
        const uint64_t uEnd = file.open(pSegment->strPath) == 0 ? fs_firstLine(file, *pSegment, &line) : 0;
        if (uEnd == 0 || line.lTime == ZEBU_TIME_NONE || line.lTime >= lTime)
            continue;
        ZEBULast last;
        last.bFromPlace = true;
        last.place = fs_place(file, pSegment->uFile, uEnd);
        last.place.bShown = false;
        last.lBefore = line.lTime;
        return last;
    }
    return {};
}

ZEBUPieces::ZEBUPieces(std::vector<ZEBUSegment> segments, size_t uSize)
    : m_segments(std::move(segments)), m_uSize(uSize), m_uSegment(m_segments.size())
{
    for (const ZEBUSegment& segment : m_segments) {
        ZEBUTraceFile file;
        m_beginnings.push_back(file.open(segment.strPath) == 0 ? fs_beginning(file, ZEBU_BEGINNING_MAX) : "");
    }
}

ZEBUPieces::State ZEBUPieces::openFile()
{
    const ZEBUSegment& segment = m_segments[--m_uSegment];
    errno = m_file.open(segment.strPath);
    if (errno != 0)
        return errno == ENOENT ? Changed : Failed;
    m_uEnd = fs_liveEnd(&m_file, segment);
    // What was written since may stand behind the beginning of the last file.
    std::string& strBeginning = m_beginnings[m_uSegment];
    strBeginning.resize(std::min<size_t>(strBeginning.size(), m_uEnd));
    return m_file.beginsWith(strBeginning) ? Piece : Changed;
}

ZEBUPieces::State ZEBUPieces::next()
{
    while (m_uEnd == 0) {
        if (m_uSegment == 0)
            return Beginning;
        const State eState = openFile();
        if (eState != Piece)
            return eState;
    }
    for (size_t uSize = m_uSize;; uSize *= 2) {
        const uint64_t uFrom = m_uEnd - std::min<uint64_t>(m_uEnd, uSize);
        m_strPiece.resize(m_uEnd - uFrom);
        const long lRead = m_file.readAt(uFrom, m_strPiece.data(), m_strPiece.size());
        if (lRead < 0 && errno != ESTALE && errno != ENOENT)
            return Failed;
        if (lRead != static_cast<long>(m_strPiece.size()) || !m_file.beginsWith(beginning()))
            return Changed;
        if (isFound(uFrom, uSize >= cs_uLookedMax))
            return Piece;
    }
}

// Whether a record begins in the piece, or it is as long as it may get.
bool ZEBUPieces::isFound(uint64_t uFrom, bool bLongest)
{
    m_uFirst = uFrom == 0 ? 0 : fs_firstRecord(m_strPiece);
    m_bWhole = m_uFirst != m_strPiece.npos;
    if (!m_bWhole && !bLongest)
        return false;
    m_uFirst = m_bWhole ? m_uFirst : 0;
    m_uEnd = uFrom + m_uFirst;
    return true;
}
