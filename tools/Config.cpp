// tools/Config.cpp -- which configuration the library would read, and what it makes of each line.
//
// The values come from the library's own reader; here is only told where they come from.
#include <algorithm>
#include <ctype.h>
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
#include "mmap/AreaHeader.h"
#include "tools/Verbs.h"

namespace {
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

// What the library makes of the lines of one file, told by its own parser.
class ZEBULines
{
public:
    explicit ZEBULines(const std::string& strFile);
    bool isOpen() const { return m_bOpen; }

    // The line that sets a key, 0 for none.
    int lineOf(const std::string& strKey) const;

    // Number of a line, and what is not as its writer may think.
    std::vector<std::pair<int, std::string>> remarks;

private:
    void read(const char* pszLine, bool bLaterPiece);
    void readMessage(const char* pszLine);
    void checkValue(const tagZEBU_CNF_KEY& key, const std::string& strValue);
    void set(const std::string& strKey);
    void remark(const std::string& strText) { remarks.emplace_back(m_iLine, strText); }
    void noEffect(const std::string& strReason) { remark("has no effect: " + strReason); }

    std::unique_ptr<ZEBUConfigInf> m_pConfig =
        std::make_unique<ZEBUConfigInf>(); // takes the values, read by nobody
    ZEBUConfigInf2 m_config2;
    bool m_bOpen;
    bool m_bMessagesEnded = false;
    int m_iLine = 0;
    std::map<std::string, int> m_origins;
};

ZEBULines::ZEBULines(const std::string& strFile)
{
    ZEBUConfFile file(strFile.c_str());
    m_bOpen = file.isOpen();
    while (const char* pszLine = m_bOpen ? file.nextLine() : nullptr) {
        m_iLine = file.line();
        read(pszLine, file.isLaterPiece());
    }
}

int ZEBULines::lineOf(const std::string& strKey) const
{
    const auto found = m_origins.find(strKey);
    return found == m_origins.end() ? 0 : found->second;
}

void ZEBULines::set(const std::string& strKey)
{
    const int iEarlier = lineOf(strKey);
    if (iEarlier != 0) {
        std::erase_if(remarks, [&](const auto& earlier) { return earlier.first == iEarlier; });
        remarks.emplace_back(iEarlier,
                             "has no effect: line " + std::to_string(m_iLine) + " sets " + strKey + " again");
    }
    m_origins[strKey] = m_iLine;
}

void ZEBULines::read(const char* pszLine, bool bLaterPiece)
{
    static constexpr std::string_view svByteOrderMark = "\xEF\xBB\xBF";
    const std::string_view svLine = pszLine;
    const size_t uFirst = svLine.find_first_not_of(" \t\r\n");
    const tagZEBU_CNF_KEY* pKey;
    switch (m_pConfig->readLine(pszLine, &pKey)) {
    case ZEBU_CNF_TAKEN:
        set(pKey->pszName);
        return checkValue(*pKey, std::string(ZEBU_WithoutLineEnd(ZEBU_CnfValue(pszLine))));
    case ZEBU_CNF_UNREADABLE:
        return noEffect(pKey->pszField ? "there is no value" : "the value is no number");
    case ZEBU_CNF_NO_VALUE:
        return noEffect(svLine.find('=') == svLine.npos ? "there is no \"=\""
                                                        : "there is no blank before \"=\"");
    case ZEBU_CNF_NO_KEY:
        break;
    }
    if (ZEBU_IsCnfKey(pszLine, ZEBU_cs_pszCnfEntMsgString))
        return readMessage(pszLine);
    if (uFirst == svLine.npos || bLaterPiece || strchr("#;", svLine[uFirst]))
        return;
    const bool bMarked = svLine.starts_with(svByteOrderMark);
    if (!bMarked || (svLine.size() > 3 && isalpha(static_cast<unsigned char>(svLine[3]))))
        noEffect(bMarked      ? "it begins with a byte order mark"
                 : uFirst > 0 ? "it begins with a blank"
                              : "it begins with no key");
}

void ZEBULines::readMessage(const char* pszLine)
{
    if (m_bMessagesEnded)
        return noEffect("an earlier MsgString line without \"=\" ends the reading");
    m_bMessagesEnded = m_config2.readLine(pszLine) == -1;
    if (m_bMessagesEnded)
        return noEffect("there is no \"=\", and no later MsgString is read");
    set(ZEBU_cs_pszCnfEntMsgString);
}

// Tells of a value that is not in force as it stands there.
void ZEBULines::checkValue(const tagZEBU_CNF_KEY& key, const std::string& strValue)
{
    const std::string strKey = key.pszName;
    if (key.pszField) {
        const std::string strTaken = (*m_pConfig).*key.pszField;
        const size_t uRest = strValue.find_first_not_of(" \t\r", strTaken.size());
        if (strchr("\"'", strValue[0]))
            remark("the quotes are part of " + strKey);
        if (uRest != strValue.npos)
            remark(strKey + " ends where a text ends, at its first blank: \"" + strValue.substr(uRest) +
                   "\" is left out");
        return;
    }
    const long lTaken =
        key.piField ? (*m_pConfig).*key.piField : static_cast<long>((*m_pConfig).*key.puField);
    char* pszEnd;
    errno = 0;
    const bool bFits = strtol(strValue.c_str(), &pszEnd, 10) == lTaken && errno == 0;
    if (!bFits || pszEnd[strspn(pszEnd, " \t\r")] != '\0')
        remark((bFits ? "the value goes on behind its number: " : "the value does not fit: ") +
               std::to_string(lTaken) + " is in force");
    const auto uTaken = static_cast<unsigned>(lTaken);
    if ((strKey == "IntervalSec" && uTaken > ZEBU_INTERVAL_SEC_MAX) ||
        (strKey == "MaxMsgNum" && uTaken > ZEBU_MSG_NUM_MAX))
        remark(strKey + " is out of range and changes no limit");
    if (strKey == "MapSize" && uTaken <= ZEBU_AREA_FRESH_MAX)
        remark(uTaken <= sizeof(tagZEBU_AREA_HEADER)
                   ? "no trace area fits into this MapSize: none is opened"
                   : "with this MapSize the trace area begins anew whenever a process opens it");
}

class ZEBUConfigReport
{
public:
    int run(const ZEBUConfigOptions& options);

private:
    void chooseFiles();
    void value(const ZEBULines& lines, const std::string& strKey, const std::string& strValue);
    void checkAreaDirectory(const ZEBUConfigInf& config, ZEBULines* pLines);
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
    const char* pszName = secure_getenv(ZEBU_cs_pszCnf2Env);
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
    const int iLine = lines.lineOf(strKey);
    print(strKey, (strValue.empty() ? "(empty)" : strValue) +
                      (iLine == 0 ? "  (default)" : "  (line " + std::to_string(iLine) + ")"));
}

// Of the directory of the area the library makes the last level alone.
void ZEBUConfigReport::checkAreaDirectory(const ZEBUConfigInf& config, ZEBULines* pLines)
{
    char szParent[ZEBU_CNF_PATH_MAX + 1];
    struct stat info;
    if (*config.szMMapDir == '\0' || ZEBU_GetParentPath(config.szMMapDir, szParent, ZEBU_CNF_PATH_MAX) != 0)
        return;
    if (stat(config.szMMapDir, &info) != 0 && stat(szParent, &info) != 0)
        pLines->remarks.emplace_back(pLines->lineOf("LogFile"), std::string("there is no directory ") +
                                                                    szParent + " for the trace area");
}

int ZEBUConfigReport::run(const ZEBUConfigOptions& options)
{
    chooseFiles();
    ZEBULines lines(m_strFile);
    const ZEBULines messageLines(m_strMessages);
    const auto pConfig = std::make_unique<ZEBUConfigInf>();
    for (const tagZEBU_CNF_KEY& key : ZEBU_cs_cnfKeys)
        value(lines, key.pszName,
              key.piField   ? std::to_string((*pConfig).*key.piField)
              : key.puField ? std::to_string((*pConfig).*key.puField)
                            : (*pConfig).*key.pszField);
    value(messageLines, ZEBU_cs_pszCnfEntMsgString,
          std::string(ZEBU_WithoutLineEnd(ZEBUConfigInf2().szMsgString)));
    print("trace area",
          *pConfig->szMMapFile ? pConfig->szMMapFile : "(none: no configuration file can be read)");
    checkAreaDirectory(*pConfig, &lines);
    std::stable_sort(lines.remarks.begin(), lines.remarks.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [iLine, strRemark] : lines.remarks)
        print(iLine == 0 ? "trace area" : "line " + std::to_string(iLine), strRemark);
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
