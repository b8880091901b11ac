// tools/Clean.cpp -- removes old trace files through the library.
#include <algorithm>
#include <ctype.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "tools/reader/Management.h"
#include "tools/Verbs.h"
#include "tools/When.h"
#include "ZEBULib2.h"

namespace {
struct Candidate
{
    std::string strPath;
    time_t modified;
};

// The rule as the library wants it: a mode and a value.
struct Rule
{
    int iMode;
    int iValue;
};

Rule fs_rule(const ZEBUCleanOptions& options)
{
    long lSeconds = 0;
    if (options.iKeep)
        return {ZEBU2_CLEAR_BY_NUMBER, *options.iKeep};
    if (!ZEBU_ParseDuration(*options.strOlderThan, &lSeconds))
        throw ZEBUFailure{"\"" + *options.strOlderThan +
                          "\" is no length of time such as 90s, 30min, 12h or 7d"};
    return {ZEBU2_CLEAR_BY_AGE, static_cast<int>(lSeconds)};
}

// The files that the pattern stands for, found as the library finds them.
std::vector<Candidate> fs_scan(const std::string& strPattern)
{
    const size_t uSlash = strPattern.rfind('/');
    const std::string strDirectory = uSlash == strPattern.npos ? "./" : strPattern.substr(0, uSlash + 1);
    DIR* pDirectory = opendir(strDirectory.c_str());
    if (!pDirectory)
        throw ZEBUFailure{strDirectory + ": " + strerror(errno)};
    std::vector<Candidate> candidates;
    while (const dirent* pEntry = readdir(pDirectory)) {
        const std::string strPath = strDirectory + pEntry->d_name;
        struct stat info;
        if (stat(strPath.c_str(), &info) == 0 && !S_ISDIR(info.st_mode) &&
            fnmatch(strPattern.c_str(), strPath.c_str(), 0) == 0)
            candidates.push_back({strPath, info.st_mtime});
    }
    (void)closedir(pDirectory);
    return candidates;
}

// Leaves the files that the rule removes.
void fs_applyRule(const Rule& rule, std::vector<Candidate>* pCandidates)
{
    std::reverse(pCandidates->begin(), pCandidates->end()); // of equal times the one found later comes first
    std::stable_sort(pCandidates->begin(), pCandidates->end(),
                     [](const Candidate& a, const Candidate& b) { return a.modified > b.modified; });
    const time_t limit = time(nullptr) - rule.iValue;
    auto last = pCandidates->begin() + std::min<long>(rule.iValue, static_cast<long>(pCandidates->size()));
    if (rule.iMode == ZEBU2_CLEAR_BY_AGE)
        last = std::find_if(pCandidates->begin(), pCandidates->end(),
                            [&](const Candidate& candidate) { return candidate.modified <= limit; });
    pCandidates->erase(pCandidates->begin(), last);
}

// Why the library would leave a file, or null.
const char* fs_obstacle(const std::string& strPath)
{
    const int iFd = open(strPath.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (iFd == -1)
        return "it cannot be opened for writing";
    struct flock lock = {.l_type = F_WRLCK, .l_whence = SEEK_SET, .l_start = 0, .l_len = 0, .l_pid = 0};
    const bool bLocked = fcntl(iFd, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    (void)close(iFd);
    return bLocked ? "a process writes it" : nullptr;
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
} // namespace

int ZEBU_Clean(const ZEBUCleanOptions& options)
{
    const Rule rule = fs_rule(options);
    std::vector<Candidate> candidates = fs_scan(options.strPattern);
    fs_applyRule(rule, &candidates);
    for (const Candidate& candidate : candidates) {
        const std::string strRing = options.bForce ? "" : fs_sharedRing(candidate.strPath);
        if (!strRing.empty())
            throw ZEBUFailure{candidate.strPath + " belongs to the shared ring " + strRing +
                              ", which processes may be writing: not removed without --force"};
    }
    ZEBUOutput output(ZEBUFormat::Text, ZEBUColor::Never);
    for (const Candidate& candidate : candidates) {
        const char* pszObstacle = fs_obstacle(candidate.strPath);
        output.write(pszObstacle ? "leave   " : "remove  ");
        output.writeText(candidate.strPath);
        output.write(pszObstacle ? std::string(" (") + pszObstacle + ")\n" : "\n");
    }
    output.flush();
    if (options.bDryRun)
        return ZEBU_EXIT_OK;
    if (ZEBU2_LogFileClear(options.strPattern.c_str(), rule.iMode, rule.iValue) == 0)
        return ZEBU_EXIT_OK;
    int iCode = 0;
    const auto uValue = static_cast<unsigned>(ZEBU2_GetLastError(&iCode));
    throw ZEBUFailure{ZEBU_ExplainedError(uValue, iCode)};
}
