// tools/Merge.h -- several sources as one, by time.
#ifndef ZEBU_TOOLS_MERGE_H
#define ZEBU_TOOLS_MERGE_H

#include <memory>
#include <string>
#include <vector>

#include "tools/Filter.h"

// Hands out the records of its sources, the earliest of the next ones first. The order within a source stays
// as it is; a record without a time goes with the one before it. Holds one record per source.
class ZEBUMerge
{
public:
    void add(std::unique_ptr<ZEBUSource> pSource);

    // The next record that matches. Idle: there are none now, but sources that are followed may get some.
    ZEBUNext next(const ZEBUFilter& filter, ZEBURecord* pRecord);

    // The file that the last record came from.
    const std::string& file() const { return m_pLast->records.file(); }

    bool hasFailed() const;

    // Whether every source holds something from `lTime` or before.
    bool reachesBackTo(ZEBUTime lTime) const;

private:
    struct Entry
    {
        explicit Entry(std::unique_ptr<ZEBUSource> pSource) : records(std::move(pSource)) {}
        ZEBURecords records;
        ZEBURecord record;
        ZEBUNext eState = ZEBUNext::Idle;
        bool bShown = false; // what was decided for the last record
        ZEBUTime lOldest = ZEBU_TIME_NONE;
    };
    Entry* earliest();

    std::vector<std::unique_ptr<Entry>> m_entries;
    Entry* m_pLast = nullptr;
};

#endif
