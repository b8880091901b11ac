// tools/reader/Merge.h -- several sources as one, by time.
#ifndef ZEBU_TOOLS_READER_MERGE_H
#define ZEBU_TOOLS_READER_MERGE_H

#include <memory>
#include <string>
#include <vector>

#include "tools/reader/Json.h"

// Hands out the records of its sources, the earliest of the next ones first. The order within a source stays
// as it is; a record without a time goes with the one before it. Holds one record per source.
class ZEBUMerge
{
public:
    // `iInterval`: milliseconds between two looks at sources that had nothing new, while others have.
    // `bPlaces`: notePlaces will be called.
    explicit ZEBUMerge(int iInterval = 100, bool bPlaces = false) : m_iInterval(iInterval), m_bPlaces(bPlaces)
    {
    }

    // Adds a source under a name. `pFrom`: the place that it was opened at, or null; `lBefore`: the time of a
    // line in front of it, when that is known.
    void add(const std::string& strName, std::unique_ptr<ZEBUSource> pSource,
             const ZEBUPlace* pFrom = nullptr, ZEBUTime lBefore = ZEBU_TIME_NONE);

    // Notes in a cursor the places behind all records that were handed out.
    void notePlaces(ZEBUCursor* pCursor);

    // Divides the memory for reading among the sources; after the last was added.
    void shareBuffer();
    bool isEmpty() const { return m_entries.empty(); }

    // The next record. Idle: there are none now, but sources that are followed may get some.
    ZEBUNext next(ZEBURecord* pRecord);

    // Where the last record came from, and what the caller decided for it, for records that continue it.
    ZEBUOrigin origin() const
    {
        const ZEBURecords& records = m_pLast->records;
        return {m_pLast->strName, records.file(), records.host(), records.zone()};
    }
    bool& shown() { return m_pLast->bShown; }

    bool hasFailed() const;

    // Whether every source holds something from `lTime` or before.
    bool reachesBackTo(ZEBUTime lTime) const;

private:
    struct Entry
    {
        Entry(const std::string& strSource, std::unique_ptr<ZEBUSource> pSource, size_t uAt)
            : strName(strSource), records(std::move(pSource)), uIndex(uAt)
        {
        }
        const std::string strName;
        ZEBURecords records;
        const size_t uIndex; // the order of records of the same time
        ZEBURecord record;
        ZEBUNext eState = ZEBUNext::Idle;
        bool bShown = false;
        ZEBUTime lOldest = ZEBU_TIME_NONE;
        ZEBUPlace place; // behind the last record but the one that was handed out last
    };
    void fetch(Entry& entry);
    void notePlace();
    void askIdle();
    Entry* earliest();
    bool isAnyIdle() const;

    const int m_iInterval;
    const bool m_bPlaces;
    std::vector<std::unique_ptr<Entry>> m_entries;
    Entry* m_pReading = nullptr; // the only one that holds descriptors
    Entry* m_pLast = nullptr;    // the one whose record was handed out,
    bool m_bTaken = false;       // which has to be fetched anew
    Entry* m_pSecond = nullptr;  // the earliest of the others,
    bool m_bSorted = false;      // as long as this holds
    unsigned m_uSinceLook = 0;   // calls
    long m_lNextLook = 0;        // at sources that had nothing new, in milliseconds of the monotonic clock
};

#endif
