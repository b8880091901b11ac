// tools/Output.h -- the standard output, and what a record looks like on it.
#ifndef ZEBU_TOOLS_OUTPUT_H
#define ZEBU_TOOLS_OUTPUT_H

#include <string>
#include <string_view>

#include "tools/Columns.h"

enum class ZEBUFormat { Text, Short, Json, Raw, Prometheus };
enum class ZEBUColor { Auto, Always, Never };

// Thrown when nobody reads the output any more, or the user ended a tool that waits.
struct ZEBUEnded
{
};

// Thrown for a failure that ends the tool with status 2. The text is shown to the user.
struct ZEBUFailure
{
    std::string strText;
};

// Text made fit for a terminal: control characters and bytes that are no UTF-8 as \n, \t, \e or \x1B.
std::string ZEBU_Escaped(std::string_view svText);

// Says something on the standard error output, as a line of its own.
void ZEBU_Say(const std::string& strText);

// Writes all bytes to a descriptor. Throws ZEBUEnded for a closed pipe, ZEBUFailure for anything else.
void ZEBU_WriteFully(int iFd, std::string_view svBytes, const std::string& strName);

// Where the standard output is a pipe, lets it hold more than the usual 64 KiB: tool and reader then wait for
// each other far less often. What a pipe holds is lost with its reader.
void ZEBU_WidenPipe();

// Makes SIGINT and SIGTERM end the tool where it waits or writes, as if its input had ended.
void ZEBU_EndOnSignals();
bool ZEBU_IsEnded();

// Tells on the standard error output how far a long run is, when that is a terminal that shows nothing else.
class ZEBUProgress
{
public:
    ZEBUProgress();
    ~ZEBUProgress();
    ZEBUProgress(const ZEBUProgress&) = delete;
    ZEBUProgress& operator=(const ZEBUProgress&) = delete;

    void add(size_t uBytes)
    {
        if (m_bTerminal)
            tell(uBytes);
    }

private:
    void tell(size_t uBytes);

    const bool m_bTerminal;
    size_t m_uBytes = 0;
    size_t m_uSaid = 0;
};

class ZEBUOutput
{
public:
    // `strColumns`: what text shows of a line, or empty for all of it; Short is text with some columns.
    // Throws ZEBUFailure for columns that there are not.
    ZEBUOutput(ZEBUFormat eFormat, ZEBUColor eColor, const std::string& strColumns = "");

    bool isTerminal() const { return m_bTerminal; }
    bool isColored() const { return m_bColored; }
    // Whether bytes go out as they come in, but for line ends.
    bool isPlain() const
    {
        return m_eFormat != ZEBUFormat::Json && !m_bColored && !isEscaping() && m_columns.isEmpty();
    }
    bool isEscaping() const { return m_eFormat == ZEBUFormat::Text && (m_bTerminal || m_bColored); }
    ZEBUFormat format() const { return m_eFormat; }

    void write(std::string_view svBytes);
    void flush();

    // Bytes of a source that need no escapes: as they are, or as text, whose lines end with LF alone so that
    // what reads them finds what stands at their end.
    void writePlain(std::string_view svBytes);

    // Text that is not of a record, and JSON: escaped on a terminal.
    void writeText(std::string_view svText);
    void writeJson(std::string_view svJson);

    void print(const ZEBURecord& record, ZEBUForm eForm, const ZEBUOrigin& origin);

private:
    void printColumns(const ZEBURecord& record, ZEBUForm eForm, const ZEBUOrigin& origin);
    void printText(const ZEBURecord& record);
    void printLines(std::string_view svText);
    void printGap(const ZEBURecord& record, const ZEBUOrigin& origin);
    void printJson(const ZEBURecord& record, ZEBUForm eForm, const ZEBUOrigin& origin);
    void flushFull();
    void colored(const char* pszColor, std::string_view svText);

    const ZEBUFormat m_eFormat;
    const bool m_bTerminal;
    const bool m_bColored;
    const ZEBUColumns m_columns;
    ZEBUJson m_json;
    ZEBUBuffer m_buffer;
    bool m_bReturn = false; // a CR was held back
    ZEBUBuffer m_written;   // what is being written; the two change places
};

#endif
