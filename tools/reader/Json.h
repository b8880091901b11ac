// tools/reader/Json.h -- records as lines of JSON, for programs that collect them.
#ifndef ZEBU_TOOLS_READER_JSON_H
#define ZEBU_TOOLS_READER_JSON_H

#include <string>
#include <string_view>

#include "tools/reader/Buffer.h"
#include "tools/reader/Records.h"
#include "tools/reader/Zone.h"

// Where a record is from.
struct ZEBUOrigin
{
    std::string_view svSource; // as the user named it
    std::string_view svFile;
    std::string_view svHost; // empty when unknown, as the zone
    std::string_view svZone;
};

// Appends a text as a JSON string: what is no UTF-8 becomes U+FFFD, one for each maximal subpart.
void ZEBU_AppendJsonText(ZEBUBuffer* pOut, std::string_view svText);

class ZEBUJson
{
public:
    // Appends one object with its line end. All have the same keys in the same order, but that of a gap.
    void append(ZEBUBuffer* pOut, const ZEBURecord& record, ZEBUForm eForm, const ZEBUOrigin& origin);

private:
    void noteOrigin(const ZEBUOrigin& origin);
    void appendTime(ZEBUBuffer* pOut, const ZEBULine& line, std::string_view svZone);
    void appendLine(ZEBUBuffer* pOut, const ZEBURecord& record, const ZEBUBody& body);

    ZEBUZone m_zone;
    std::string m_strHost, m_strSource, m_strFile; // of the last record,
    ZEBUBuffer m_origin, m_end;                    // and what is written of them
    std::string m_strWriterColumns;                // of the last line: application, process and thread,
    ZEBUBuffer m_writer;                           // and what is written of them, up to the counter
};

#endif
