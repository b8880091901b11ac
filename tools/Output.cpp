// tools/Output.cpp -- text, JSON and raw bytes on the standard output, fit for a terminal where it is one.
#include "tools/Output.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <utility>

namespace {
constexpr size_t cs_uBuffer = size_t{128} * 1024;
constexpr int cs_iWidePipe = 1 << 20; // as large as any user may make one
volatile sig_atomic_t cs_bEnded = 0;

// Comes again every second: a signal that arrives just before a write that waits would go unnoticed.
void fs_onSignal(int)
{
    cs_bEnded = 1;
    (void)alarm(1);
}

bool fs_wantsColor(ZEBUFormat eFormat, ZEBUColor eColor, bool bTerminal)
{
    if (eFormat != ZEBUFormat::Text || eColor != ZEBUColor::Auto)
        return eFormat == ZEBUFormat::Text && eColor == ZEBUColor::Always;
    const char* pszNoColor = getenv("NO_COLOR");
    const char* pszTerm = getenv("TERM");
    return bTerminal && !(pszNoColor && *pszNoColor) && !(pszTerm && strcmp(pszTerm, "dumb") == 0);
}

// What would steer a terminal: control characters, also those of two bytes in UTF-8, and those that turn the
// direction of writing, so that a text looks like another.
bool fs_isHarmful(unsigned uCode)
{
    return uCode < 0x20 || (uCode >= 0x7F && uCode < 0xA0) || uCode == 0x61C || uCode == 0x200E ||
           uCode == 0x200F || (uCode >= 0x202A && uCode <= 0x202E) || (uCode >= 0x2066 && uCode <= 0x2069);
}

// The character that a text begins with, and the length of its UTF-8 sequence: 0 when that is none.
size_t fs_decode(std::string_view svText, unsigned* puCode)
{
    const auto at = [&](size_t u) { return static_cast<unsigned char>(svText[u]); };
    *puCode = at(0);
    if (at(0) < 0x80)
        return 1;
    const size_t uLength = at(0) >= 0xF0 ? 4 : at(0) >= 0xE0 ? 3 : 2;
    if (at(0) < 0xC2 || at(0) > 0xF4 || svText.size() < uLength)
        return 0;
    unsigned uCode = at(0) & (0xFFu >> (uLength + 1));
    for (size_t u = 1; u < uLength; ++u) {
        if ((at(u) & 0xC0) != 0x80)
            return 0;
        uCode = uCode << 6 | (at(u) & 0x3Fu);
    }
    *puCode = uCode;
    const bool bOverlong = uCode < (uLength == 4 ? 0x10000u : uLength == 3 ? 0x800u : 0x80u);
    return bOverlong || uCode > 0x10FFFF || (uCode >> 11) == 0x1B ? 0 : uLength;
}

// The length of the sequence, 0 when it is none or harmful.
size_t fs_printable(std::string_view svText)
{
    unsigned uCode;
    const size_t uLength = fs_decode(svText, &uCode);
    return uLength > 0 && !fs_isHarmful(uCode) ? uLength : 0;
}

// JSON text with the harmful characters escaped that JSON leaves as they are; the line ends between values
// stay.
std::string fs_escapedJson(std::string_view svJson)
{
    std::string strOut;
    for (size_t uLength; !svJson.empty(); svJson.remove_prefix(uLength)) {
        unsigned uCode;
        char szEscape[8];
        uLength = std::max<size_t>(fs_decode(svJson, &uCode), 1);
        (void)snprintf(szEscape, sizeof szEscape, "\\u%04x", uCode & 0xFFFF);
        if (fs_isHarmful(uCode) && uCode != '\n')
            strOut += szEscape;
        else
            strOut += svJson.substr(0, uLength);
    }
    return strOut;
}
} // namespace

std::string ZEBU_Escaped(std::string_view svText)
{
    static constexpr char szDigits[] = "0123456789ABCDEF";
    std::string strOut;
    while (!svText.empty()) {
        size_t uLength = fs_printable(svText);
        if (uLength > 0) {
            strOut += svText.substr(0, uLength);
        } else {
            const auto u = static_cast<unsigned char>(svText[0]);
            const char* pszKnown = u == '\t' ? "\\t" : u == '\n' ? "\\n" : u == '\r' ? "\\r" : nullptr;
            if (pszKnown)
                strOut += pszKnown;
            else
                strOut += {'\\', 'x', szDigits[u >> 4], szDigits[u & 15]};
            uLength = 1;
        }
        svText.remove_prefix(uLength);
    }
    return strOut;
}

void ZEBU_Say(const std::string& strText)
{
    std::string strLine = "zebu2: ";
    for (size_t u = 0; u <= strText.size();) {
        const size_t uEnd = std::min(strText.find('\n', u), strText.size());
        strLine += ZEBU_Escaped(std::string_view(strText).substr(u, uEnd - u)) + "\n";
        u = uEnd + 1;
    }
    (void)!write(STDERR_FILENO, strLine.data(), strLine.size());
}

void ZEBU_WriteFully(int iFd, std::string_view svBytes, const std::string& strName)
{
    while (!svBytes.empty()) {
        const ssize_t iWritten = write(iFd, svBytes.data(), svBytes.size());
        const int iErrno = iWritten < 0 ? errno : 0;
        svBytes.remove_prefix(static_cast<size_t>(std::max<ssize_t>(iWritten, 0)));
        if (iErrno == EPIPE || (cs_bEnded && !svBytes.empty()))
            throw ZEBUEnded{};
        pollfd wait = {.fd = iFd, .events = POLLOUT, .revents = 0};
        if (iErrno == EAGAIN)
            (void)poll(&wait, 1, -1);
        else if (iErrno != 0 && iErrno != EINTR)
            throw ZEBUFailure{strName + ": " + strerror(iErrno)};
    }
}

void ZEBU_WidenPipe()
{
    const int iSize = fcntl(STDOUT_FILENO, F_GETPIPE_SZ); // -1: it is none
    if (iSize > 0 && iSize < cs_iWidePipe)
        (void)fcntl(STDOUT_FILENO, F_SETPIPE_SZ, cs_iWidePipe);
}

void ZEBU_EndOnSignals()
{
    struct sigaction action = {};
    action.sa_handler = fs_onSignal;
    (void)sigaction(SIGINT, &action, nullptr);
    (void)sigaction(SIGTERM, &action, nullptr);
    (void)sigaction(SIGALRM, &action, nullptr);
}

bool ZEBU_IsEnded()
{
    return cs_bEnded != 0;
}

ZEBUProgress::ZEBUProgress() : m_bTerminal(isatty(STDERR_FILENO) == 1 && isatty(STDOUT_FILENO) != 1) {}

ZEBUProgress::~ZEBUProgress()
{
    if (m_uSaid > 0)
        (void)!::write(STDERR_FILENO, "\r\x1B[K", 4); // the line was for the time of the run
}

void ZEBUProgress::tell(size_t uBytes)
{
    constexpr size_t cs_uStep = size_t{64} * 1024 * 1024;
    m_uBytes += uBytes;
    if (m_uBytes - m_uSaid < cs_uStep)
        return;
    m_uSaid = m_uBytes;
    const std::string strLine = "\rzebu2: " + std::to_string(m_uBytes / 1024 / 1024) + " MiB";
    (void)!::write(STDERR_FILENO, strLine.data(), strLine.size());
}

ZEBUOutput::ZEBUOutput(ZEBUFormat eFormat, ZEBUColor eColor, const std::string& strColumns)
    : m_eFormat(eFormat == ZEBUFormat::Short ? ZEBUFormat::Text : eFormat),
      m_bTerminal(isatty(STDOUT_FILENO) == 1), m_bColored(fs_wantsColor(m_eFormat, eColor, m_bTerminal)),
      m_columns(eFormat == ZEBUFormat::Short && strColumns.empty() ? "time,app,text" : strColumns)
{
    if (!m_columns.unknown().empty())
        throw ZEBUFailure{m_columns.unknown() + " is none of the columns that --help shows"};
    if (!strColumns.empty() && m_eFormat != ZEBUFormat::Text)
        throw ZEBUFailure{"--columns is for text"};
    (void)m_buffer.room(2 * cs_uBuffer);
}

void ZEBUOutput::write(std::string_view svBytes)
{
    if (svBytes.size() >= cs_uBuffer) {
        flush();
        ZEBU_WriteFully(STDOUT_FILENO, svBytes, "standard output");
        return;
    }
    m_buffer.append(svBytes);
    flushFull();
}

void ZEBUOutput::flushFull()
{
    if (m_buffer.size() >= cs_uBuffer)
        flush();
}

void ZEBUOutput::writePlain(std::string_view svBytes)
{
    if (m_eFormat != ZEBUFormat::Text)
        return write(svBytes);
    if (!svBytes.empty() && std::exchange(m_bReturn, false) && svBytes[0] != '\n')
        write("\r");
    for (size_t u; (u = svBytes.find("\r\n")) != svBytes.npos;) {
        write(svBytes.substr(0, u));
        svBytes.remove_prefix(u + 1);
    }
    m_bReturn = m_bReturn || svBytes.ends_with('\r'); // its LF may come with the next piece of a long line
    write(svBytes.substr(0, svBytes.size() - (svBytes.ends_with('\r') ? 1 : 0)));
}

void ZEBUOutput::flush()
{
    std::swap(m_written, m_buffer);
    m_buffer.clear(); // first: a write that throws is not tried again
    ZEBU_WriteFully(STDOUT_FILENO, m_written.view(), "standard output");
}

void ZEBUOutput::writeText(std::string_view svText)
{
    write(m_bTerminal ? ZEBU_Escaped(svText) : svText);
}

void ZEBUOutput::writeJson(std::string_view svJson)
{
    write(m_bTerminal ? fs_escapedJson(svJson) : svJson);
}

void ZEBUOutput::print(const ZEBURecord& record, ZEBUForm eForm, const ZEBUOrigin& origin)
{
    if (m_eFormat == ZEBUFormat::Json) {
        printJson(record, eForm, origin);
    } else if (record.eKind == ZEBURecordKind::Gap) {
        printGap(record, origin);
    } else if (!m_columns.isEmpty() && record.eKind == ZEBURecordKind::Line) {
        printColumns(record, eForm, origin);
    } else if (isEscaping()) {
        printText(record);
    } else {
        writePlain(record.svBytes);
        if (!record.bLineEnd && m_eFormat == ZEBUFormat::Text)
            write("\n");
    }
}

void ZEBUOutput::printJson(const ZEBURecord& record, ZEBUForm eForm, const ZEBUOrigin& origin)
{
    if (!m_bTerminal) {
        m_json.append(&m_buffer, record, eForm, origin);
        flushFull();
        return;
    }
    ZEBUBuffer json;
    m_json.append(&json, record, eForm, origin);
    writeJson(json.view());
}

// Raw output has the bytes of lines alone.
void ZEBUOutput::printGap(const ZEBURecord& record, const ZEBUOrigin& origin)
{
    if (m_eFormat == ZEBUFormat::Raw)
        return;
    write("---- ");
    writeText(origin.svSource);
    write(": lines of " + std::to_string(record.uFilesLost) + (record.uFilesLost == 1 ? " file" : " files") +
          " or more may be missing here ----\n");
}

void ZEBUOutput::colored(const char* pszColor, std::string_view svText)
{
    if (m_bColored)
        write(pszColor);
    write(ZEBU_Escaped(svText));
    if (m_bColored)
        write("\x1B[0m");
}

void ZEBUOutput::printColumns(const ZEBURecord& record, ZEBUForm eForm, const ZEBUOrigin& origin)
{
    for (const ZEBUField& field : m_columns.cut(record.line, record.svBytes, eForm, origin)) {
        if (field.bLast) {
            isEscaping() ? printLines(field.svText) : writePlain(field.svText);
            break;
        }
        const std::string_view svLine = field.svText.substr(0, field.svText.find_first_of("\r\n"));
        m_bColored ? colored(field.pszColor, svLine) : write(isEscaping() ? ZEBU_Escaped(svLine) : svLine);
        write(std::string(1 + field.uWidth - std::min(field.uWidth, svLine.size()), ' '));
    }
    if (!isEscaping())
        write("\n");
}

void ZEBUOutput::printText(const ZEBURecord& record)
{
    static constexpr char szFaint[] = "\x1B[2m";
    if (record.eKind != ZEBURecordKind::Line) {
        if (m_bColored && record.eKind == ZEBURecordKind::Header)
            write(szFaint);
        printLines(record.svBytes);
        if (m_bColored && record.eKind == ZEBURecordKind::Header)
            write("\x1B[0m");
        return;
    }
    const std::string_view svHeader = record.svBytes.substr(0, ZEBU_LINE_HEADER);
    colored(szFaint, svHeader.substr(0, 5));
    colored("\x1B[32m", svHeader.substr(5, 28));
    colored("\x1B[36m", svHeader.substr(33, 17));
    colored(szFaint, svHeader.substr(50));
    printLines(record.svBytes.substr(ZEBU_LINE_HEADER));
}

void ZEBUOutput::printLines(std::string_view svText)
{
    do {
        const std::string_view svLine = svText.substr(0, svText.find('\n') + 1);
        const std::string_view svWhole = svLine.empty() ? svText : svLine;
        write(ZEBU_Escaped(ZEBU_WithoutLineEnd(svWhole)));
        write("\n");
        svText.remove_prefix(svWhole.size());
    } while (!svText.empty());
}
