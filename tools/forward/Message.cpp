#include "tools/forward/Message.h"

#include <algorithm>
#include <array>

namespace {
constexpr int cs_iFacility = 16; // local0
constexpr int cs_iInfo = 6;
constexpr char cs_szTable[] =
    "F=crit,FATL=crit,CRIT=crit,E=err,ERR=err,EROR=err,ERRO=err,W=warning,WARN=warning,"
    "N=notice,NOTE=notice,D=debug,DBG=debug,DEBG=debug,T=debug,TRC=debug,TRAC=debug,"
    "*=info";
constexpr std::array cs_names = {"emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"};
// Of the number that is set aside for examples and for those who have none of their own.
constexpr char cs_szElement[] = "[zebu2@32473";

// The severity of a word, or -1.
int fs_severity(std::string_view svWord)
{
    if (svWord.size() == 1 && svWord[0] >= '0' && svWord[0] <= '7')
        return svWord[0] - '0';
    const auto found = std::find(cs_names.begin(), cs_names.end(), svWord);
    return found == cs_names.end() ? -1 : static_cast<int>(found - cs_names.begin());
}

// A field of the header: printable ASCII without blanks.
void fs_appendField(std::string& strOut, std::string_view svField, size_t uMax)
{
    strOut += ' ';
    if (svField.empty())
        strOut += '-';
    for (const char c : svField.substr(0, uMax))
        strOut += c > ' ' && c <= '~' ? c : '_';
}

// A parameter of the structured data. Its value would be UTF-8: what is not ASCII becomes a question mark.
void fs_appendParameter(std::string& strOut, const char* pszName, std::string_view svValue)
{
    if (svValue.empty())
        return;
    strOut.append(1, ' ').append(pszName).append("=\"");
    for (const char c : svValue) {
        if (c == '"' || c == '\\' || c == ']')
            strOut += '\\';
        strOut += c >= ' ' && c <= '~' ? c : '?';
    }
    strOut += '"';
}

void fs_appendText(std::string& strOut, std::string_view svText, size_t uMax)
{
    if (strOut.size() + svText.size() <= uMax) {
        strOut += svText;
        return;
    }
    const size_t uRoom = uMax - std::min(uMax, strOut.size());
    // The number is as wide as it may get: what is cut off grows with it.
    const std::string strWidest = " [" + std::to_string(svText.size()) + " bytes cut off]";
    const size_t uKept = uRoom - std::min(uRoom, strWidest.size());
    strOut += svText.substr(0, uKept);
    strOut += " [" + std::to_string(svText.size() - uKept) + " bytes cut off]";
}
} // namespace

ZEBUSeverities::ZEBUSeverities() : m_iOther(cs_iInfo)
{
    (void)parse(cs_szTable);
}

bool ZEBUSeverities::parse(const std::string& strTable)
{
    m_severities.clear();
    m_iOther = cs_iInfo;
    std::string_view svRest = strTable;
    while (!svRest.empty()) {
        const std::string_view svEntry = svRest.substr(0, svRest.find(','));
        svRest.remove_prefix(std::min(svEntry.size() + 1, svRest.size()));
        const size_t uEqual = svEntry.find('=');
        const int iSeverity = uEqual == svEntry.npos ? -1 : fs_severity(svEntry.substr(uEqual + 1));
        if (iSeverity < 0 || uEqual == 0)
            return false;
        if (svEntry.substr(0, uEqual) == "*")
            m_iOther = iSeverity;
        else
            m_severities[std::string(svEntry.substr(0, uEqual))] = iSeverity;
    }
    return true;
}

int ZEBUSeverities::of(std::string_view svType) const
{
    const auto found = m_severities.find(svType);
    return found == m_severities.end() ? m_iOther : found->second;
}

std::string ZEBU_FormatMessage(const ZEBUMessage& message, size_t uMax)
{
    std::string strOut;
    strOut.reserve(std::min(uMax, message.svText.size() + 256));
    strOut += '<' + std::to_string(cs_iFacility * 8 + message.iSeverity) + ">1";
    fs_appendField(strOut, message.svTime, 32);
    fs_appendField(strOut, message.svHost, 255);
    fs_appendField(strOut, message.svApp, 48);
    fs_appendField(strOut, message.svPid, 128);
    fs_appendField(strOut, message.svId, 32);
    strOut.append(1, ' ').append(cs_szElement);
    fs_appendParameter(strOut, "source", message.svSource);
    fs_appendParameter(strOut, "counter", message.svCounter);
    fs_appendParameter(strOut, "tid", message.svTid);
    fs_appendParameter(strOut, "type", message.svType);
    strOut += "] ";
    fs_appendText(strOut, message.svText, uMax);
    return strOut;
}
