// tools/Columns.h -- the fields of a line that a user asked for, in the order that was asked for.
#ifndef ZEBU_TOOLS_COLUMNS_H
#define ZEBU_TOOLS_COLUMNS_H

#include <string>
#include <string_view>
#include <vector>

#include "tools/reader/Json.h"

// One field of a line. Its view is good as long as those of the line.
struct ZEBUField
{
    std::string_view svText;
    size_t uWidth; // of its column, 0 for any
    const char* pszColor;
    bool bLast;
};

class ZEBUColumns
{
public:
    // `strNames`: divided by commas; empty for none.
    explicit ZEBUColumns(const std::string& strNames);
    const std::string& unknown() const { return m_strUnknown; } // a name, in quotes, that is none of a column
    bool isEmpty() const { return m_columns.empty(); }

    // Cuts a line. A field that the line does not have is empty.
    std::vector<ZEBUField> cut(const ZEBULine& line, std::string_view svBytes, ZEBUForm eForm,
                               const ZEBUOrigin& origin) const;

private:
    std::string m_strUnknown;
    std::vector<size_t> m_columns; // places in the table of all
};

#endif
