#include "tools/Kept.h"

#include <utility>

ZEBUKept::ZEBUKept(const ZEBURecord& record, const ZEBUOrigin& origin)
    : m_record(record), m_strBytes(record.svBytes), m_strSource(origin.svSource), m_strFile(origin.svFile),
      m_strHost(origin.svHost), m_strZone(origin.svZone)
{
}

void ZEBUKept::print(ZEBUOutput& output, ZEBUForm eForm) const
{
    ZEBURecord record = m_record;
    record.svBytes = m_strBytes;
    (void)ZEBU_ParseLine(record.svBytes, &record.line);
    output.print(record, eForm, {m_strSource, m_strFile, m_strHost, m_strZone});
}

void ZEBUContext::begin(ZEBUOutput& output, ZEBUForm eForm)
{
    if (std::exchange(m_bPrinted, true) && m_bLeftOut && output.format() == ZEBUFormat::Text)
        output.write("--\n");
    m_bLeftOut = false;
    for (const ZEBUKept& kept : m_before)
        kept.print(output, eForm);
    m_before.clear();
    m_uBehind = m_uLines;
}

void ZEBUContext::pass(ZEBUOutput& output, ZEBUForm eForm, const ZEBURecord& record, const ZEBUOrigin& origin)
{
    if (m_uBehind > 0) {
        --m_uBehind;
        output.print(record, eForm, origin);
        return;
    }
    m_before.emplace_back(record, origin);
    if (m_before.size() <= m_uLines)
        return;
    m_before.pop_front();
    m_bLeftOut = true;
}
