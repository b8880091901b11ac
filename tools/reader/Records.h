// tools/reader/Records.h -- cuts the bytes of a source into records.
//
// A record is a trace line with the lines that continue it, a file header, or lines that continue nothing.
// The memory it takes does not depend on the source.
#ifndef ZEBU_TOOLS_READER_RECORDS_H
#define ZEBU_TOOLS_READER_RECORDS_H

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/reader/Line.h"
#include "tools/reader/Source.h"

// The longest record. What a message continues with beyond it becomes a further record.
constexpr size_t ZEBU_RECORD_MAX = size_t{64} * 1024;

// Gap: here the source passed something over.
enum class ZEBURecordKind { Line, Header, Text, Gap };

struct ZEBURecord
{
    ZEBURecordKind eKind = ZEBURecordKind::Text;
    std::string_view svBytes;        // with all line ends
    ZEBULine line;                   // of a Line; its body runs to the end of the record
    ZEBUTime lTime = ZEBU_TIME_NONE; // its own, or that of the last record before it that had one
    bool bContinues = false;         // a Text that goes on with the record before it
    bool bLineEnd = true;            // false when the source ends within a line
    unsigned uFilesLost = 0;         // of a Gap: of so many files, at least, lines may be missing
};

enum class ZEBUNext { Record, Idle, End };

class ZEBURecords
{
public:
    // `bForeign`: bytes of other origin may stand between the lines, without a line end of their own.
    explicit ZEBURecords(std::unique_ptr<ZEBUSource> pSource, bool bForeign = false);

    // How much is read at once, for those who have many; records are as long as ever. Before the first is
    // fetched.
    void setBuffer(size_t uSize);

    // Gives back the descriptors until more has to be read.
    void park() { m_pSource->park(); }

    // Fetches the next record. Its views are good until the next call, as is file().
    ZEBUNext next(ZEBURecord* pRecord);

    // The file that the last record came from.
    const std::string& file() const { return m_strFile; }
    bool hasFailed() const { return m_pSource->hasFailed(); }

    // Of the file header before it: the host, and what TZ was set to. Empty when unknown.
    const std::string& host() const { return m_strHost; }
    const std::string& zone() const { return m_strZone; }

    // The place behind the last record, until the next call; one with offset 0 is none.
    ZEBUPlace place() const;

private:
    bool cut(ZEBURecord* pRecord);
    bool findPiece();
    bool extends() const;
    void emit(size_t uEnd, ZEBURecord* pRecord);
    ZEBURead fill();
    void cutOff();
    size_t room() const { return m_buffer.size() - 1 - m_uEnd; }
    void noteFile();
    void noteHeader(std::string_view svHeader);

    std::string_view bytes(size_t uFrom, size_t uTo) const { return {m_buffer.data() + uFrom, uTo - uFrom}; }

    std::unique_ptr<ZEBUSource> m_pSource;
    const bool m_bForeign;
    size_t m_uSize;
    std::vector<char> m_buffer;           // made when it is needed
    size_t m_uBegin = 0;                  // of the record that is gathered
    size_t m_uGathered = 0;               // its end so far, the end of a line
    size_t m_uPiece = 0;                  // end of the line behind it, when that is not m_uGathered
    size_t m_uEnd = 0;                    // of the bytes that were read
    size_t m_uLooked = 0;                 // up to here there is no line end behind m_uGathered
    ZEBUPiece m_eFirst = ZEBUPiece::Text; // first and last line of the record that is gathered
    ZEBUPiece m_eLast = ZEBUPiece::Text;
    ZEBUPiece m_ePiece = ZEBUPiece::Text; // the line behind it
    ZEBULine m_firstLine;                 // as they were parsed, if they are trace lines
    ZEBULine m_pieceLine;
    bool m_bAfterLine = false; // the record before it in the same file can be continued
    bool m_bFileEnd = false;   // the buffer holds the rest of a file
    bool m_bEnd = false;       // and there is no other
    unsigned m_uFilesLost = 0; // a Gap is to be told of, before what the buffer gets next
    ZEBUTime m_lTime = ZEBU_TIME_NONE;
    std::string m_strFile;
    std::string m_strHost;
    std::string m_strZone;
    size_t m_uLastSize = 0;        // of the last record, which ends at m_uBegin
    unsigned m_uFileNumber = 0;    // of the file that the bytes are from,
    uint64_t m_uFileOffset = 0;    // the place of m_uEnd in it, 0 when there are no places,
    std::string m_strBeginning;    // and how it begins
    uint64_t m_uBeginningHash = 0; // as a whole
};

// Cuts a text into records; each comes with its offset.
void ZEBU_ForEachRecord(std::string_view svText,
                        const std::function<void(const ZEBURecord& record, size_t uOffset)>& take);

#endif
