#include "tools/reader/Json.h"

#include <charconv>
#include <stdint.h>
#include <string.h>

namespace {
constexpr char cs_szDigits[] = "0123456789abcdef";

bool fs_isPlain(char c)
{
    const auto uByte = static_cast<unsigned char>(c);
    return uByte >= 0x20 && uByte < 0x80 && c != '"' && c != '\\';
}

// Bytes that are looked at at once.
using Block [[gnu::vector_size(16)]] = unsigned char;

bool fs_isPlainBlock(const char* pText)
{
    Block bytes;
    memcpy(&bytes, pText, sizeof bytes);
    const auto other = (bytes < 0x20) | (bytes >= 0x80) | (bytes == '"') | (bytes == '\\');
    uint64_t uOther[2];
    memcpy(uOther, &other, sizeof uOther);
    return (uOther[0] | uOther[1]) == 0;
}

// How many bytes a text begins with that stand for themselves: most of a line is such.
size_t fs_plainLength(std::string_view svText)
{
    size_t u = 0;
    while (u + sizeof(Block) <= svText.size() && fs_isPlainBlock(svText.data() + u))
        u += sizeof(Block);
    while (u < svText.size() && fs_isPlain(svText[u]))
        ++u;
    return u;
}

// The length of the UTF-8 sequence that a text begins with; or, when it begins with none, of the longest
// beginning of one, at least 1, and `*pbWhole` is false.
size_t fs_sequence(std::string_view svText, bool* pbWhole)
{
    const auto at = [&](size_t u) { return static_cast<unsigned char>(svText[u]); };
    const unsigned uLead = at(0);
    const size_t uLength = uLead < 0x80   ? 1
                           : uLead < 0xC2 ? 0
                           : uLead < 0xE0 ? 2
                           : uLead < 0xF0 ? 3
                           : uLead < 0xF5 ? 4
                                          : 0;
    // Some leads narrow what may follow: nothing overlong, no surrogates, nothing beyond U+10FFFF.
    const unsigned uLow = uLead == 0xE0 ? 0xA0 : uLead == 0xF0 ? 0x90 : 0x80;
    const unsigned uTop = uLead == 0xED ? 0x9F : uLead == 0xF4 ? 0x8F : 0xBF;
    size_t u = 1;
    while (u < uLength && u < svText.size() && at(u) >= (u == 1 ? uLow : 0x80) &&
           at(u) <= (u == 1 ? uTop : 0xBF))
        ++u;
    *pbWhole = uLength > 0 && u == uLength;
    return u;
}

void fs_appendEscape(std::string* pstrOut, unsigned uCode)
{
    static constexpr std::string_view svShort = "\"\"\\\\\bb\ff\nn\rr\tt"; // the character, and its letter
    for (size_t u = 0; u < svShort.size(); u += 2)
        if (static_cast<unsigned char>(svShort[u]) == uCode) {
            const char szEscape[] = {'\\', svShort[u + 1]};
            pstrOut->append(szEscape, sizeof szEscape);
            return;
        }
    const char szEscape[] = {'\\', 'u', '0', '0', cs_szDigits[uCode >> 4], cs_szDigits[uCode & 15]};
    pstrOut->append(szEscape, sizeof szEscape);
}

void fs_appendNumber(std::string* pstrOut, unsigned uValue)
{
    char szDigits[16];
    const auto result = std::to_chars(szDigits, szDigits + sizeof szDigits, uValue);
    pstrOut->append(szDigits, result.ptr);
}

void fs_appendText(std::string* pstrOut, std::string_view svKey, bool bKnown, std::string_view svText)
{
    pstrOut->append(svKey);
    if (bKnown)
        ZEBU_AppendJsonText(pstrOut, svText);
    else
        pstrOut->append("null");
}
} // namespace

void ZEBU_AppendJsonText(std::string* pstrOut, std::string_view svText)
{
    *pstrOut += '"';
    while (!svText.empty()) {
        size_t uTaken = fs_plainLength(svText);
        pstrOut->append(svText.data(), uTaken);
        svText.remove_prefix(uTaken);
        if (svText.empty())
            break;
        bool bWhole;
        uTaken = fs_sequence(svText, &bWhole);
        if (!bWhole)
            pstrOut->append("\xEF\xBF\xBD");
        else if (uTaken == 1)
            fs_appendEscape(pstrOut, static_cast<unsigned char>(svText[0]));
        else
            pstrOut->append(svText.data(), uTaken);
        svText.remove_prefix(uTaken);
    }
    *pstrOut += '"';
}

void ZEBUJson::append(std::string* pstrOut, const ZEBURecord& record, ZEBUForm eForm,
                      const ZEBUOrigin& origin)
{
    static constexpr std::string_view svKinds[] = {"line", "header", "text", "gap"};
    pstrOut->append("{\"kind\":\"").append(svKinds[static_cast<int>(record.eKind)]).append("\"");
    if (record.eKind == ZEBURecordKind::Gap) {
        fs_appendText(pstrOut, ",\"source\":", true, origin.svSource);
        pstrOut->append(",\"files\":");
        fs_appendNumber(pstrOut, record.uFilesLost);
        pstrOut->append("}\n");
        return;
    }
    const bool bLine = record.eKind == ZEBURecordKind::Line;
    noteOrigin(origin);
    appendTime(pstrOut, bLine ? record.line : ZEBULine(), origin.svZone);
    pstrOut->append(m_strOrigin);
    if (bLine)
        appendLine(pstrOut, record, ZEBU_ReadBody(record.line.svBody, eForm));
    else
        appendOther(pstrOut, record);
    pstrOut->append(m_strEnd);
}

void ZEBUJson::appendTime(std::string* pstrOut, const ZEBULine& line, std::string_view svZone)
{
    if (line.lTime == ZEBU_TIME_NONE) {
        pstrOut->append(",\"time\":null");
        return;
    }
    pstrOut->append(",\"time\":\"");
    m_zone.append(pstrOut, line.svTime, line.lTime, svZone);
    *pstrOut += '"';
}

// Mostly it is that of the record before.
void ZEBUJson::noteOrigin(const ZEBUOrigin& origin)
{
    if (!m_strEnd.empty() && origin.svFile == m_strFile && origin.svSource == m_strSource &&
        origin.svHost == m_strHost)
        return;
    m_strHost = origin.svHost;
    m_strSource = origin.svSource;
    m_strFile = origin.svFile;
    m_strOrigin.clear();
    fs_appendText(&m_strOrigin, ",\"host\":", !m_strHost.empty(), m_strHost);
    fs_appendText(&m_strOrigin, ",\"source\":", true, m_strSource);
    m_strEnd.clear();
    fs_appendText(&m_strEnd, ",\"file\":", true, m_strFile);
    m_strEnd += "}\n";
}

// So are application, process and thread, which stand side by side in the line.
void ZEBUJson::appendLine(std::string* pstrOut, const ZEBURecord& record, const ZEBUBody& body)
{
    const ZEBULine& line = record.line;
    const std::string_view svWriter = record.svBytes.substr(ZEBU_COL_APP, ZEBU_COL_BODY - ZEBU_COL_APP);
    if (svWriter != m_strWriterColumns) {
        m_strWriterColumns = svWriter;
        m_strWriter.clear();
        fs_appendText(&m_strWriter, ",\"app\":", true, line.svApp);
        m_strWriter += ",\"pid\":";
        fs_appendNumber(&m_strWriter, line.uPid);
        fs_appendText(&m_strWriter, ",\"tid\":", true, line.svTid);
        m_strWriter += ",\"counter\":";
    }
    pstrOut->append(m_strWriter);
    fs_appendNumber(pstrOut, static_cast<unsigned>(line.iCounter));
    if (body.eForm == ZEBUForm::Type || body.eForm == ZEBUForm::Id) {
        const bool bType = body.eForm == ZEBUForm::Type;
        pstrOut->append(bType ? ",\"form\":\"type\"" : ",\"form\":\"id\"");
        fs_appendText(pstrOut, ",\"id\":", true, body.svId);
        fs_appendText(pstrOut, ",\"type\":", bType, body.svType);
    } else {
        pstrOut->append(body.eForm == ZEBUForm::Plain ? ",\"form\":\"plain\",\"id\":null,\"type\":null"
                                                      : ",\"form\":null,\"id\":null,\"type\":null");
    }
    fs_appendText(pstrOut, ",\"text\":", true, body.eForm == ZEBUForm::Unknown ? line.svBody : body.svText);
}

void ZEBUJson::appendOther(std::string* pstrOut, const ZEBURecord& record)
{
    pstrOut->append(
        ",\"app\":null,\"pid\":null,\"tid\":null,\"counter\":null,\"form\":null,\"id\":null,\"type\":null");
    fs_appendText(pstrOut, ",\"text\":", true, ZEBU_WithoutLineEnd(record.svBytes));
}
