// tools/Config.cpp -- which configuration the library would read, and what it makes of each line.
//
// The values come from the library's own reader; here is only told where they come from.
#include <errno.h>
#include <limits.h>
#include <map>
#include <memory>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "config/Conf2Unix.h"
#include "config/ConfFile.h"
#include "config/ConfUnix.h"
#include "config/GetPath.h"
#include "tools/Verbs.h"

namespace {
// In the order in which the library compares a line with them.
constexpr const char* cs_keys[] = {"Release", "LogFNum",  "MonPath",     "LogFile",  "LogSize",
                                   "MapSize", "WatchDog", "IntervalSec", "MaxMsgNum"};

bool fs_isText(const std::string& strKey)
{
    return strKey == "MonPath" || strKey == "LogFile";
}

// Why the file that the environment names is not read, or an empty text when it is.
std::string fs_whyNotOverride(const char* pszName)
{
    if (!pszName)
        return std::string(ZEBU_cs_pszCnf2Env) + " is not set";
    const std::string strSubject = std::string(ZEBU_cs_pszCnf2Env) + " names \"" + pszName + "\", which ";
    char szPath[ZEBU_CNF_PATH_MAX + 1];
    struct stat info;
    if (ZEBU_GetCnfOverride())
        return "";
    if (*pszName == '\0' || strlen(pszName) > ZEBU_CNF_PATH_MAX)
        return strSubject + "is empty or too long";
    if (ZEBU_GetAbsolutePath(pszName, szPath, ZEBU_CNF_PATH_MAX) != 0)
        return strSubject + "is no absolute path";
    if (stat(pszName, &info) != 0)
        return strSubject + "cannot be examined (" + strerror(errno) + ")";
    return strSubject + (S_ISREG(info.st_mode) ? "is a standard file" : "is no ordinary file");
}

// What becomes of the lines of one file.
class ZEBULines
{
public:
    explicit ZEBULines(const std::string& strFile);
    bool isOpen() const { return m_bOpen; }

    // "line 7", or "default" when no line sets the key.
    std::string origin(const std::string& strKey) const;

    // Number of the line and the reason why it has no effect.
    std::vector<std::pair<int, std::string>> remarks;

private:
    void read(int iLine, const std::string& strLine);
    void readMessage(int iLine, const std::string& strLine);
    void set(int iLine, const std::string& strKey);
    void remark(int iLine, const std::string& strReason) { remarks.emplace_back(iLine, strReason); }

    bool m_bOpen;
    bool m_bMessagesEnded = false;
    std::map<std::string, int> m_origins;
};

ZEBULines::ZEBULines(const std::string& strFile)
{
    ZEBUConfFile file(strFile.c_str());
    m_bOpen = file.isOpen();
    int iLine = 0;
    while (const char* pszLine = m_bOpen ? file.nextLine() : nullptr)
        read(++iLine, pszLine);
}

std::string ZEBULines::origin(const std::string& strKey) const
{
    const auto found = m_origins.find(strKey);
    return found == m_origins.end() ? "default" : "line " + std::to_string(found->second);
}

void ZEBULines::set(int iLine, const std::string& strKey)
{
    const auto earlier = m_origins.find(strKey);
    if (earlier != m_origins.end())
        remark(earlier->second, "line " + std::to_string(iLine) + " sets " + strKey + " again");
    m_origins[strKey] = iLine;
}

void ZEBULines::read(int iLine, const std::string& strLine)
{
    if (ZEBU_IsCnfKey(strLine.c_str(), ZEBU_cs_pszCnfEntMsgString))
        return readMessage(iLine, strLine);
    for (const char* pszKey : cs_keys) {
        if (!ZEBU_IsCnfKey(strLine.c_str(), pszKey))
            continue;
        int iValue = -1;
        (void)sscanf(strLine.c_str(), "%*s = %n", &iValue);
        const char* pszValue = iValue < 0 ? "" : strLine.c_str() + iValue;
        char* pszEnd = nullptr;
        if (iValue < 0 && strLine.find('=') == strLine.npos)
            return remark(iLine, "there is no \"=\"");
        if (iValue < 0)
            return remark(iLine, "there is no blank before \"=\"");
        (void)strtol(pszValue, &pszEnd, 10);
        if (*pszValue == '\0' || (!fs_isText(pszKey) && pszEnd == pszValue))
            return remark(iLine, fs_isText(pszKey) ? "there is no value" : "the value is no number");
        return set(iLine, pszKey);
    }
    const size_t uFirst = strLine.find_first_not_of(" \t\r\n");
    if (uFirst == strLine.npos || strchr("#;", strLine[uFirst]))
        return;
    const bool bIndented = uFirst > 0;
    remark(iLine, bIndented ? "it begins with a blank" : "it begins with no key");
}

void ZEBULines::readMessage(int iLine, const std::string& strLine)
{
    if (m_bMessagesEnded)
        return remark(iLine, "an earlier MsgString line without \"=\" ends the reading");
    m_bMessagesEnded = strLine.find('=', strlen(ZEBU_cs_pszCnfEntMsgString)) == strLine.npos;
    if (m_bMessagesEnded)
        return remark(iLine, "there is no \"=\", and no later MsgString is read");
    set(iLine, ZEBU_cs_pszCnfEntMsgString);
}

class ZEBUConfigReport
{
public:
    int run(const ZEBUConfigOptions& options);

private:
    void chooseFiles();
    void value(const ZEBULines& lines, const std::string& strKey, const std::string& strValue);
    void print(const std::string& strName, const std::string& strText);

    ZEBUOutput m_output{ZEBUFormat::Text, ZEBUColor::Never};
    std::string m_strFile;     // of the general settings
    std::string m_strMessages; // of MsgString
    bool m_bRemarks = false;
};

void ZEBUConfigReport::print(const std::string& strName, const std::string& strText)
{
    m_output.write(strName + std::string(strName.size() < 12 ? 12 - strName.size() : 1, ' '));
    m_output.writeText(strText);
    m_output.write("\n");
}

void ZEBUConfigReport::chooseFiles()
{
    const char* pszName = getenv(ZEBU_cs_pszCnf2Env);
    std::string strWhyNot = fs_whyNotOverride(pszName);
    m_strMessages = strWhyNot.empty() ? pszName : ZEBU_cs_pszCnfFileName;
    const auto pConfig = std::make_unique<ZEBUConfigInf>();
    pConfig->iLoaded = 0;
    if (pszName && strWhyNot.empty() && pConfig->loadCnf() != 0)
        strWhyNot = std::string(pszName) + " has no absolute LogFile or cannot be read";
    m_strFile = pszName && strWhyNot.empty() ? pszName : ZEBU_cs_pszCnfFileName;
    m_bRemarks = pszName && !strWhyNot.empty();
    print("file", m_strFile + " (" +
                      (strWhyNot.empty() ? ZEBU_cs_pszCnf2Env + std::string(" names it") : strWhyNot) + ")");
}

void ZEBUConfigReport::value(const ZEBULines& lines, const std::string& strKey, const std::string& strValue)
{
    print(strKey, (strValue.empty() ? "(empty)" : strValue) + "  (" + lines.origin(strKey) + ")");
}

int ZEBUConfigReport::run(const ZEBUConfigOptions& options)
{
    chooseFiles();
    const ZEBULines lines(m_strFile);
    const ZEBULines messageLines(m_strMessages);
    const auto pConfig = std::make_unique<ZEBUConfigInf>();
    const ZEBUConfigInf2 config2;
    value(lines, "Release", std::to_string(pConfig->iRelease));
    value(lines, "MonPath", pConfig->szMonPath);
    value(lines, "LogFile", pConfig->szLogFile);
    value(lines, "LogSize", std::to_string(pConfig->uLogSize));
    value(lines, "LogFNum", std::to_string(pConfig->iLogFNum));
    value(lines, "WatchDog", std::to_string(pConfig->iWatchDog));
    value(lines, "MapSize", std::to_string(pConfig->uMapSize));
    value(lines, "IntervalSec", std::to_string(pConfig->iIntervalSec));
    value(lines, "MaxMsgNum", std::to_string(pConfig->iMaxMsgNum));
    value(messageLines, "MsgString", std::string(ZEBU_WithoutLineEnd(config2.szMsgString)));
    print("trace area",
          *pConfig->szMMapFile ? pConfig->szMMapFile : "(none: no configuration file can be read)");
    for (const auto& [iLine, strReason] : lines.remarks)
        print("line " + std::to_string(iLine), "has no effect: " + strReason);
    if (m_strMessages != m_strFile)
        print("MsgString", "is read from " + m_strMessages);
    m_bRemarks = m_bRemarks || !lines.isOpen() || !lines.remarks.empty();
    m_output.flush();
    return options.bCheck && m_bRemarks ? ZEBU_EXIT_NOTHING : ZEBU_EXIT_OK;
}
} // namespace

int ZEBU_Config(const ZEBUConfigOptions& options)
{
    if (!options.strFile.empty()) {
        char szPath[PATH_MAX];
        if (!realpath(options.strFile.c_str(), szPath))
            throw ZEBUFailure{options.strFile + ": " + strerror(errno)};
        if (strcmp(szPath, ZEBU_cs_pszCnfFileName) == 0)
            (void)unsetenv(ZEBU_cs_pszCnf2Env);
        else
            (void)setenv(ZEBU_cs_pszCnf2Env, szPath, 1);
    }
    return ZEBUConfigReport().run(options);
}

std::string ZEBU_ConfiguredArea()
{
    const auto pConfig = std::make_unique<ZEBUConfigInf>();
    if (*pConfig->szMMapFile == '\0')
        throw ZEBUFailure{
            "no configuration file can be read that says where the trace area lies: give --area=FILE"};
    return pConfig->szMMapFile;
}
