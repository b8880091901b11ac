// tools/reader/Newest.h -- several sources as one, newest record first.
#ifndef ZEBU_TOOLS_READER_NEWEST_H
#define ZEBU_TOOLS_READER_NEWEST_H

#include <memory>
#include <string>
#include <vector>

#include "tools/reader/Backward.h"
#include "tools/reader/Json.h"

// The records of one source, newest first. What continues a record stands behind it as ever.
class ZEBUBackward
{
public:
    // `lSince`: pieces that begin before it are the last ones.
    ZEBUBackward(const std::string& strName, std::vector<ZEBUSegment> segments, size_t uPiece,
                 ZEBUTime lSince, const ZEBUWarn& warnUser);

    // Fetches the next record, at the end false. Its views are good until the next call, as those of the
    // origin.
    bool next(ZEBURecord* pRecord);
    ZEBUOrigin origin() const { return {m_strName, m_pieces.file().path(), m_strHost, m_strZone}; }

    bool hasFailed() const { return m_bFailed; }
    bool reachesBackTo(ZEBUTime lTime) const { return m_lOldest != ZEBU_TIME_NONE && m_lOldest <= lTime; }

private:
    // A record of the piece.
    struct Cut
    {
        size_t uOffset, uSize;
        ZEBUTime lTime;
        ZEBURecordKind eKind;
        bool bContinues, bLineEnd;
    };
    bool fill();
    bool finish(ZEBUPieces::State eState, ZEBURecord* pRecord);
    void fetch(const Cut& cut, ZEBURecord* pRecord);

    const std::string m_strName;
    const ZEBUTime m_lSince;
    const ZEBUWarn m_warn;
    ZEBUPieces m_pieces;
    ZEBUPieces::State m_eState = ZEBUPieces::Piece;
    std::string m_strHost; // of the file
    std::string m_strZone;
    std::vector<Cut> m_cuts;
    size_t m_uGroup = 0;    // a record and what continues it
    size_t m_uNext = 0;     // in the group,
    size_t m_uGroupEnd = 0; // up to here
    ZEBUTime m_lOldest = ZEBU_TIME_NONE;
    bool m_bFailed = false;
};

// Hands out the records of its sources, the latest of the next ones first.
class ZEBUNewestFirst
{
public:
    // `uSources`: as many will be added. `lSince`: what is older need not be handed out, and is not read.
    ZEBUNewestFirst(size_t uSources, ZEBUTime lSince) : m_uSources(uSources), m_lSince(lSince) {}

    // Adds a source. Returns 0 or the errno, ESPIPE for what can be read in one direction alone.
    int add(const std::string& strName, const ZEBUWarn& warn);

    // The next record; false at the end.
    bool next(ZEBURecord* pRecord);

    // Where the last record came from, and what the caller decided for it, for records that continue it.
    ZEBUOrigin origin() const { return m_pLast->backward.origin(); }
    bool& shown() { return m_pLast->bShown; }

    bool hasFailed() const;
    bool reachesBackTo(ZEBUTime lTime) const;

private:
    struct Entry
    {
        Entry(const std::string& strName, const std::vector<ZEBUSegment>& segments, size_t uPiece,
              ZEBUTime lSince, const ZEBUWarn& warn)
            : backward(strName, segments, uPiece, lSince, warn)
        {
        }
        ZEBUBackward backward;
        ZEBURecord record;
        bool bRecord = false; // there is one
        bool bShown = false;
    };

    const size_t m_uSources;
    const ZEBUTime m_lSince;
    std::vector<std::unique_ptr<Entry>> m_entries;
    Entry* m_pLast = nullptr; // whose record was handed out, and has to be fetched anew
};

#endif
