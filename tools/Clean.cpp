// tools/Clean.cpp -- removes old trace files through the library, and tells beforehand which, from the
// library's own scan, order and test.
#include <ctype.h>
#include <errno.h>
#include <string.h>
#include <time.h>
#include <vector>

#include "cleanup/LogCleanupUnix.h"
#include "tools/reader/Management.h"
#include "tools/Verbs.h"
#include "tools/When.h"
#include "ZEBULib2.h"

namespace {
// The rule as the library wants it: a mode and a value.
struct Rule
{
    int iMode;
    int iValue;
};

Rule fs_rule(const ZEBUCleanOptions& options)
{
    if (options.iKeep)
        return {ZEBU2_CLEAR_BY_NUMBER, *options.iKeep};
    return {ZEBU2_CLEAR_BY_AGE, static_cast<int>(ZEBU_Duration(*options.strOlderThan))};
}

// What a scan found: the files that the rule is for, how many match at all, and the errno where it ended
// early.
struct Found
{
    std::vector<std::string> chosen;
    int iMatching = 0;
    int iErrno = 0;
};

Found fs_find(const std::string& strPattern, const Rule& rule)
{
    Found found;
    ZEBUFindFileList list;
    if (strPattern.size() > ZEBU_PATTERN_MAX)
        throw ZEBUFailure{"the pattern is too long"};
    ZEBUFileScan scan(strPattern.c_str());
    int iNext = scan.open();
    const time_t limit = time(nullptr) - rule.iValue;
    while (iNext == 0 && (iNext = scan.next()) == 1) {
        iNext = 0;
        ++found.iMatching;
        if (rule.iMode == ZEBU2_CLEAR_BY_NUMBER)
            (void)list.addElement(scan.path(), scan.modified());
        else if (scan.modified() <= limit)
            found.chosen.emplace_back(scan.path());
    }
    found.iErrno = iNext == -1 ? errno : 0;
    list.sort();
    int iPlace = 0;
    for (const ZEBUFindFileElement* pElement = list.pHead; pElement && found.iErrno == 0;
         pElement = pElement->pNext)
        if (++iPlace > rule.iValue)
            found.chosen.emplace_back(pElement->path());
    return found;
}

bool fs_isSharedRing(const std::string& strPrefix)
{
    ZEBUManagement management;
    ZEBURingRecord record;
    return management.open(strPrefix) == 0 && management.load(&record);
}

// The prefix of the shared ring that a file belongs to, or an empty text. Nothing tells whether a process
// will write into a shared ring next, so one with a valid record counts as live.
std::string fs_sharedRing(const std::string& strPath)
{
    const size_t uBase = strPath.rfind("/mmap/");
    if (strPath.ends_with(".mm") && uBase != strPath.npos) {
        const std::string strPrefix =
            strPath.substr(0, uBase + 1) + strPath.substr(uBase + 6, strPath.size() - uBase - 9);
        return fs_isSharedRing(strPrefix) ? strPrefix : "";
    }
    if (!strPath.ends_with(".log"))
        return "";
    // The prefix may end in digits too.
    for (size_t u = strPath.size() - 4; u > 0 && isdigit(static_cast<unsigned char>(strPath[u - 1])); --u)
        if (fs_isSharedRing(strPath.substr(0, u - 1)))
            return strPath.substr(0, u - 1);
    return "";
}

[[noreturn]] void fs_refuse(const std::string& strPath, const std::string& strRing)
{
    throw ZEBUFailure{strPath + " belongs to the shared ring " + strRing +
                      ", which processes may be writing: not removed without --force"};
}
} // namespace

int ZEBU_Clean(const ZEBUCleanOptions& options)
{
    const Rule rule = fs_rule(options);
    const Found found = fs_find(options.strPattern, rule);
    for (const std::string& strPath : found.chosen) {
        const std::string strRing = options.bForce ? "" : fs_sharedRing(strPath);
        if (!strRing.empty())
            fs_refuse(strPath, strRing);
    }
    ZEBUOutput output(ZEBUFormat::Text, ZEBUColor::Never);
    for (const std::string& strPath : found.chosen) {
        const bool bRemove = ZEBU_IsRemovable(strPath.c_str());
        output.write(bRemove ? "remove  " : "leave   ");
        output.writeText(strPath);
        output.write(bRemove ? "\n" : " (a process writes it, or it cannot be opened for writing)\n");
    }
    output.flush();
    if (options.bDryRun && found.iErrno != 0)
        throw ZEBUFailure{options.strPattern + ": the directory, or a file in it, cannot be examined (" +
                          strerror(found.iErrno) + "): nothing else is removed"};
    if (options.bDryRun || ZEBU2_LogFileClear(options.strPattern.c_str(), rule.iMode, rule.iValue) == 0)
        return found.iMatching > 0 ? ZEBU_EXIT_OK : ZEBU_EXIT_NOTHING;
    int iCode = 0;
    const auto uValue = static_cast<unsigned>(ZEBU2_GetLastError(&iCode));
    throw ZEBUFailure{ZEBU_ExplainedError(uValue, iCode)};
}
