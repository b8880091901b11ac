// tools/Kept.h -- records that are shown later than they were read, or only when others are.
#ifndef ZEBU_TOOLS_KEPT_H
#define ZEBU_TOOLS_KEPT_H

#include <deque>
#include <string>

#include "tools/Output.h"

// A record that outlives the buffer it was cut from.
class ZEBUKept
{
public:
    ZEBUKept(const ZEBURecord& record, const ZEBUOrigin& origin);
    void print(ZEBUOutput& output, ZEBUForm eForm) const;

private:
    ZEBURecord m_record; // but for what points to its bytes
    const std::string m_strBytes;
    const std::string m_strSource, m_strFile, m_strHost, m_strZone;
};

// The records around those that match: the last ones before, which are kept until one matches, and the next
// ones behind.
class ZEBUContext
{
public:
    // `uLines`: records on each side, 0 for no context.
    explicit ZEBUContext(size_t uLines) : m_uLines(uLines) {}
    bool isWanted() const { return m_uLines > 0; }

    // Comes before a record that matches is printed. Text has "--" where something was left out.
    void begin(ZEBUOutput& output, ZEBUForm eForm);
    // Takes a record that does not match.
    void pass(ZEBUOutput& output, ZEBUForm eForm, const ZEBURecord& record, const ZEBUOrigin& origin);

private:
    const size_t m_uLines;
    std::deque<ZEBUKept> m_before;
    size_t m_uBehind = 0;    // still to be printed
    bool m_bPrinted = false; // anything
    bool m_bLeftOut = false; // something since then
};

#endif
