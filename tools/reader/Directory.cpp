// tools/reader/Directory.cpp -- which files of a directory make a ring, by their names.
#include "tools/reader/Directory.h"

#include <algorithm>
#include <dirent.h>
#include <initializer_list>
#include <memory>
#include <set>
#include <string_view>
#include <sys/stat.h>

#include "mmap/AreaHeader.h"
#include "tools/reader/Management.h"
#include "tools/reader/TraceFile.h"

namespace {
std::vector<std::string> fs_namesIn(const std::string& strDirectory)
{
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> pDirectory(opendir(strDirectory.c_str()), closedir);
    while (const dirent* pEntry = pDirectory ? readdir(pDirectory.get()) : nullptr)
        names.emplace_back(pEntry->d_name);
    return names;
}

// The prefix of the ring that a name such as app12.log belongs to: app, or app1. Empty when it is of none.
std::string fs_prefixOf(const std::string& strPath)
{
    static constexpr std::string_view svEnd = ".log";
    for (const size_t uDigits : {size_t{2}, size_t{1}}) {
        if (!strPath.ends_with(svEnd) || strPath.size() < svEnd.size() + uDigits)
            continue;
        const size_t uPrefix = strPath.size() - svEnd.size() - uDigits;
        const std::string strNumber = strPath.substr(uPrefix, uDigits);
        if (strNumber.find_first_not_of("0123456789") != strNumber.npos || strNumber[0] == '0')
            continue;
        const unsigned uNumber = static_cast<unsigned>(std::stoul(strNumber));
        std::string strPrefix = strPath.substr(0, uPrefix);
        const std::vector<unsigned> numbers = ZEBU_ExistingTraceFiles(strPrefix);
        if (std::find(numbers.begin(), numbers.end(), uNumber) != numbers.end())
            return strPrefix;
    }
    return "";
}

bool fs_isDirectory(const std::string& strPath)
{
    struct stat info;
    return stat(strPath.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}
} // namespace

std::vector<std::string> ZEBU_RingsIn(const std::string& strDirectory)
{
    const std::string strBase = strDirectory + (strDirectory.ends_with('/') ? "" : "/");
    std::set<std::string> prefixes;
    for (const std::string& strName : fs_namesIn(strDirectory))
        if (const std::string strPrefix = fs_prefixOf(strBase + strName); strPrefix.size() > strBase.size())
            prefixes.insert(strPrefix);
    return {prefixes.begin(), prefixes.end()};
}

std::vector<std::string> ZEBU_WithoutDirectories(const std::vector<std::string>& sources)
{
    std::vector<std::string> result;
    for (const std::string& strSource : sources) {
        const bool bDirectory = fs_isDirectory(strSource);
        const std::vector<std::string> rings = bDirectory ? ZEBU_RingsIn(strSource) : std::vector{strSource};
        result.insert(result.end(), rings.begin(), rings.end());
        if (rings.empty() && sources.size() == 1)
            result.push_back(strSource);
    }
    return result;
}

std::string ZEBU_OtherUse(const std::string& strPath)
{
    struct stat info;
    tagZEBU_AREA_HEADER header = {};
    ZEBUTraceFile file;
    if (file.open(strPath) != 0 || fstat(file.fd(), &info) != 0 ||
        file.readAt(0, reinterpret_cast<char*>(&header), sizeof header) != sizeof header ||
        header.uMagic != ZEBU_AREA_MAGIC)
        return "";
    if (info.st_size == ZEBU_MANAGE_LENGTH && header.uReserved == ZEBU_MANAGE_STAMP)
        return "is the management file of a shared ring: give the prefix of the ring to show or stat";
    if (header.uReserved == 0)
        return "is a trace area: use drain --peek --area=" + strPath + " or stat --area=" + strPath;
    return ""; // a text
}
