#include "tools/reader/Json.h"

#include <charconv>
#include <stdint.h>
#include <string.h>

namespace {
constexpr char cs_szDigits[] = "0123456789abcdef";

// Of what is no line, up to its text.
constexpr std::string_view cs_svNoFields = ",\"app\":null,\"pid\":null,\"tid\":null,\"counter\":null,"
                                           "\"form\":null,\"id\":null,\"type\":null,\"text\":";

bool fs_isPlain(char c)
{
    const auto uByte = static_cast<unsigned char>(c);
    return uByte >= 0x20 && uByte < 0x80 && c != '"' && c != '\\';
}

// Bytes that are looked at at once.
using Block [[gnu::vector_size(16)]] = signed char;

// Copies a block, and tells whether all of its bytes stand for themselves.
bool fs_copyBlock(const char* pText, char* pTo)
{
    Block bytes;
    memcpy(&bytes, pText, sizeof bytes);
    memcpy(pTo, &bytes, sizeof bytes);
    const auto other = (bytes < 0x20) | (bytes == '"') | (bytes == '\\'); // from 0x80 on they are negative
    uint64_t uOther[2];
    memcpy(uOther, &other, sizeof uOther);
    return (uOther[0] | uOther[1]) == 0;
}

// Copies the bytes that a text begins with and that stand for themselves, and returns how many: most of a
// line is such. The last block reaches back over what was copied already.
size_t fs_copyPlain(std::string_view svText, char* pTo)
{
    const size_t uSize = svText.size();
    size_t u = 0;
    while (u + sizeof(Block) <= uSize && fs_copyBlock(svText.data() + u, pTo + u))
        u += sizeof(Block);
    const size_t uLast = uSize - sizeof(Block);
    if (uSize > sizeof(Block) && u > uLast && fs_copyBlock(svText.data() + uLast, pTo + uLast))
        return uSize;
    for (; u < uSize && fs_isPlain(svText[u]); ++u)
        pTo[u] = svText[u];
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

void fs_appendEscape(ZEBUBuffer* pOut, unsigned uCode)
{
    static constexpr std::string_view svShort = "\"\"\\\\\bb\ff\nn\rr\tt"; // the character, and its letter
    for (size_t u = 0; u < svShort.size(); u += 2)
        if (static_cast<unsigned char>(svShort[u]) == uCode) {
            const char szEscape[] = {'\\', svShort[u + 1]};
            pOut->append({szEscape, sizeof szEscape});
            return;
        }
    const char szEscape[] = {'\\', 'u', '0', '0', cs_szDigits[uCode >> 4], cs_szDigits[uCode & 15]};
    pOut->append({szEscape, sizeof szEscape});
}

void fs_appendNumber(ZEBUBuffer* pOut, unsigned uValue)
{
    constexpr size_t cs_uDigits = 10;
    char* p = pOut->room(cs_uDigits);
    pOut->add(static_cast<size_t>(std::to_chars(p, p + cs_uDigits, uValue).ptr - p));
}
} // namespace

void ZEBU_AppendJsonText(ZEBUBuffer* pOut, std::string_view svText)
{
    pOut->append("\"");
    while (!svText.empty()) {
        size_t uTaken = fs_copyPlain(svText, pOut->room(svText.size()));
        pOut->add(uTaken);
        svText.remove_prefix(uTaken);
        if (svText.empty())
            break;
        bool bWhole;
        uTaken = fs_sequence(svText, &bWhole);
        if (!bWhole)
            pOut->append("\xEF\xBF\xBD");
        else if (uTaken == 1)
            fs_appendEscape(pOut, static_cast<unsigned char>(svText[0]));
        else
            pOut->append(svText.substr(0, uTaken));
        svText.remove_prefix(uTaken);
    }
    pOut->append("\"");
}

void ZEBUJson::append(ZEBUBuffer* pOut, const ZEBURecord& record, ZEBUForm eForm, const ZEBUOrigin& origin)
{
    if (record.eKind == ZEBURecordKind::Gap) {
        ZEBU_AppendJsonText(&pOut->append("{\"kind\":\"gap\",\"source\":"), origin.svSource);
        fs_appendNumber(&pOut->append(",\"files\":"), record.uFilesLost);
        pOut->append("}\n");
        return;
    }
    noteOrigin(origin);
    if (record.eKind == ZEBURecordKind::Line) {
        appendTime(&pOut->append("{\"kind\":\"line\",\"time\":"), record.line, origin.svZone);
        pOut->append(m_origin.view());
        appendLine(pOut, record, ZEBU_ReadBody(record.line.svBody, eForm));
    } else {
        const bool bHeader = record.eKind == ZEBURecordKind::Header;
        pOut->append(bHeader ? "{\"kind\":\"header\",\"time\":null" : "{\"kind\":\"text\",\"time\":null");
        pOut->append(m_origin.view());
        pOut->append(cs_svNoFields);
        ZEBU_AppendJsonText(pOut, ZEBU_WithoutLineEnd(record.svBytes));
    }
    pOut->append(m_end.view());
}

void ZEBUJson::appendTime(ZEBUBuffer* pOut, const ZEBULine& line, std::string_view svZone)
{
    if (line.lTime == ZEBU_TIME_NONE)
        pOut->append("null");
    else
        pOut->append("\"").append(m_zone.text(line.svTime, line.lTime, svZone)).append("\"");
}

// Mostly it is that of the record before.
void ZEBUJson::noteOrigin(const ZEBUOrigin& origin)
{
    if (m_end.size() > 0 && origin.svFile == m_strFile && origin.svSource == m_strSource &&
        origin.svHost == m_strHost)
        return;
    m_strHost = origin.svHost;
    m_strSource = origin.svSource;
    m_strFile = origin.svFile;
    m_origin.clear();
    if (m_strHost.empty())
        m_origin.append(",\"host\":null");
    else
        ZEBU_AppendJsonText(&m_origin.append(",\"host\":"), m_strHost);
    ZEBU_AppendJsonText(&m_origin.append(",\"source\":"), m_strSource);
    m_end.clear();
    ZEBU_AppendJsonText(&m_end.append(",\"file\":"), m_strFile);
    m_end.append("}\n");
}

// So are application, process and thread, which stand side by side in the line.
void ZEBUJson::appendLine(ZEBUBuffer* pOut, const ZEBURecord& record, const ZEBUBody& body)
{
    const ZEBULine& line = record.line;
    const std::string_view svWriter = record.svBytes.substr(ZEBU_COL_APP, ZEBU_COL_BODY - ZEBU_COL_APP);
    if (svWriter != m_strWriterColumns) {
        m_strWriterColumns = svWriter;
        m_writer.clear();
        ZEBU_AppendJsonText(&m_writer.append(",\"app\":"), line.svApp);
        fs_appendNumber(&m_writer.append(",\"pid\":"), line.uPid);
        ZEBU_AppendJsonText(&m_writer.append(",\"tid\":"), line.svTid);
        m_writer.append(",\"counter\":");
    }
    fs_appendNumber(&pOut->append(m_writer.view()), static_cast<unsigned>(line.iCounter));
    if (body.eForm == ZEBUForm::Type) {
        ZEBU_AppendJsonText(&pOut->append(",\"form\":\"type\",\"id\":"), body.svId);
        ZEBU_AppendJsonText(&pOut->append(",\"type\":"), body.svType);
    } else if (body.eForm == ZEBUForm::Id) {
        ZEBU_AppendJsonText(&pOut->append(",\"form\":\"id\",\"id\":"), body.svId);
        pOut->append(",\"type\":null");
    } else if (body.eForm == ZEBUForm::Plain) {
        pOut->append(",\"form\":\"plain\",\"id\":null,\"type\":null");
    } else {
        pOut->append(",\"form\":null,\"id\":null,\"type\":null");
    }
    const bool bWhole = body.eForm == ZEBUForm::Unknown;
    ZEBU_AppendJsonText(&pOut->append(",\"text\":"), bWhole ? line.svBody : body.svText);
}
