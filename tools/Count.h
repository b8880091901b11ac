// tools/Count.h -- a table of how many lines have what in common.
#ifndef ZEBU_TOOLS_COUNT_H
#define ZEBU_TOOLS_COUNT_H

#include <map>
#include <string>

#include "tools/Output.h"

class ZEBUCount
{
public:
    // `strKey`: app, pid, tid, id, type, minute or hour; or histogram, for how many there are over time.
    ZEBUCount(const std::string& strKey, ZEBUForm eForm) : m_strKey(strKey), m_eForm(eForm) {}

    // Counts a line; other records are passed over.
    void add(const ZEBURecord& record);

    // Most first, and of equals in the order of their keys. "-" stands for lines that have no such key. A
    // histogram in the order of time, in at most 50 rows.
    void print(ZEBUOutput& output) const;

private:
    void printHistogram(ZEBUOutput& output) const;
    void printRow(ZEBUOutput& output, const std::string& strKey, long lCount, long lMost,
                  size_t uWidth) const;
    std::string keyOf(const ZEBULine& line) const;

    const std::string m_strKey;
    const ZEBUForm m_eForm;
    std::map<std::string, long> m_counts;
    std::map<ZEBUTime, long> m_minutes; // of a histogram
};

#endif
