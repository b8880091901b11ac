// tools/reader/Backward.h -- reads a source from its end, so that a large ring need not be read from its
// beginning.
#ifndef ZEBU_TOOLS_READER_BACKWARD_H
#define ZEBU_TOOLS_READER_BACKWARD_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/reader/Records.h"

// Whether a record counts; what was decided for the one before it comes with it.
using ZEBUCounts = std::function<bool(const ZEBURecord&, bool)>;

// A place to begin at.
struct ZEBULast
{
    bool bFromPlace = false; // else there are not more of them: the whole source
    ZEBUPlace place;         // recognised like one of a cursor, since the files may change meanwhile
    size_t uCount = 0;       // how many records count from there on, perhaps more than asked for
    ZEBUTime lBefore = ZEBU_TIME_NONE; // of the line before it, when that is known
};

// Finds where the last `uCount` records that count begin, or a little before. Nothing when the source cannot
// be read backwards.
std::optional<ZEBULast> ZEBU_FindLast(const ZEBUSource& source, size_t uCount, const ZEBUCounts& counts);

// Finds the newest file whose first line is older than `lTime`, and the place behind that line. What stands
// before it was written earlier. Nothing when there is no such file.
std::optional<ZEBULast> ZEBU_FindSince(const ZEBUSource& source, ZEBUTime lTime);

// The records of a source in pieces of some, from the last piece to the first. Holds one piece.
class ZEBUPieces
{
public:
    // `uSize`: bytes of a piece, if a record ends there; a text without any line may make it 4 MiB.
    ZEBUPieces(std::vector<ZEBUSegment> segments, size_t uSize);

    // Reads the piece before the last one. Changed: a file is another than it was at the start, since the
    // ring came round. Failed: it cannot be read, and errno tells why.
    enum State { Piece, Beginning, Changed, Failed };
    State next();

    // The last piece: its text, where it begins in its file, and whether with a record; else the text of a
    // record was cut.
    std::string_view text() const { return std::string_view(m_strPiece).substr(m_uFirst); }
    uint64_t offset() const { return m_uEnd; }
    bool isWhole() const { return m_bWhole; }

    const ZEBUTraceFile& file() const { return m_file; }
    const std::string& beginning() const { return m_beginnings[m_uSegment]; } // of that file
    unsigned fileNumber() const { return m_segments[m_uSegment].uFile; }
    unsigned filesLeft() const { return static_cast<unsigned>(m_uSegment); }

    // Gives back the descriptor until more is read.
    void park() { m_file.park(); }

private:
    State openFile();
    bool isFound(uint64_t uFrom, bool bLongest);

    const std::vector<ZEBUSegment> m_segments; // oldest first
    std::vector<std::string> m_beginnings;
    const size_t m_uSize;
    size_t m_uSegment; // the one that is read
    ZEBUTraceFile m_file;
    uint64_t m_uEnd = 0; // of what is still to be read of it
    std::string m_strPiece;
    size_t m_uFirst = 0; // record in it
    bool m_bWhole = true;
};

#endif
