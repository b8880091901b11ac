// tools/Columns.cpp -- the table of the columns that there are.
#include "tools/Columns.h"

#include <algorithm>
#include <iterator>

namespace {
constexpr char cs_szGreen[] = "\x1B[32m"; // as those of a whole line
constexpr char cs_szCyan[] = "\x1B[36m";
constexpr char cs_szFaint[] = "\x1B[2m";
constexpr char cs_szPlain[] = "";

// What the columns are cut from.
struct Parts
{
    const ZEBULine& line;
    std::string_view svBytes;
    ZEBUBody body;
    const ZEBUOrigin& origin;
};

constexpr struct
{
    std::string_view svName;
    size_t uWidth;
    const char* pszColor;
    std::string_view (*cut)(const Parts& parts);
} cs_columns[] = {{"counter", ZEBU_COUNT_WIDTH, cs_szFaint,
                   [](const Parts& parts) { return parts.svBytes.substr(ZEBU_COL_COUNT, ZEBU_COUNT_WIDTH); }},
                  {"time", ZEBU_TIME_TEXT, cs_szGreen, [](const Parts& parts) { return parts.line.svTime; }},
                  {"app", ZEBU_APP_NAME, cs_szCyan, [](const Parts& parts) { return parts.line.svApp; }},
                  {"pid", ZEBU_HEX_WIDTH, cs_szFaint,
                   [](const Parts& parts) { return parts.svBytes.substr(ZEBU_COL_PID, ZEBU_HEX_WIDTH); }},
                  {"tid", ZEBU_HEX_WIDTH, cs_szFaint, [](const Parts& parts) { return parts.line.svTid; }},
                  {"id", ZEBU_ID_WIDTH, cs_szPlain, [](const Parts& parts) { return parts.body.svId; }},
                  {"type", ZEBU_TYPE_WIDTH, cs_szPlain, [](const Parts& parts) { return parts.body.svType; }},
                  {"text", 0, cs_szPlain,
                   [](const Parts& parts) {
                       return parts.body.eForm == ZEBUForm::Unknown ? parts.line.svBody : parts.body.svText;
                   }},
                  {"body", 0, cs_szPlain, [](const Parts& parts) { return parts.line.svBody; }},
                  {"host", 0, cs_szPlain, [](const Parts& parts) { return parts.origin.svHost; }},
                  {"source", 0, cs_szPlain, [](const Parts& parts) { return parts.origin.svSource; }},
                  {"file", 0, cs_szPlain, [](const Parts& parts) { return parts.origin.svFile; }}};
} // namespace

ZEBUColumns::ZEBUColumns(const std::string& strNames)
{
    for (size_t u = 0, uEnd = 0; !strNames.empty() && u <= strNames.size(); u = uEnd + 1) {
        uEnd = std::min(strNames.find(',', u), strNames.size());
        const std::string strName = strNames.substr(u, uEnd - u);
        const auto* pFound = std::find_if(std::begin(cs_columns), std::end(cs_columns),
                                          [&](const auto& column) { return column.svName == strName; });
        if (pFound == std::end(cs_columns))
            m_strUnknown = "\"" + strName + "\"";
        else
            m_columns.push_back(static_cast<size_t>(pFound - cs_columns));
    }
}

std::vector<ZEBUField> ZEBUColumns::cut(const ZEBULine& line, std::string_view svBytes, ZEBUForm eForm,
                                        const ZEBUOrigin& origin) const
{
    const Parts parts = {line, svBytes, ZEBU_ReadBody(line.svBody, eForm), origin};
    std::vector<ZEBUField> fields;
    fields.reserve(m_columns.size());
    for (const size_t u : m_columns)
        fields.push_back({cs_columns[u].cut(parts), cs_columns[u].uWidth, cs_columns[u].pszColor,
                          fields.size() + 1 == m_columns.size()});
    return fields;
}
