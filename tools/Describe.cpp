// tools/Describe.cpp -- looks at a ring, a file or the trace area.
#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <set>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/Describe.h"
#include "tools/reader/Area.h"
#include "tools/reader/Directory.h"
#include "tools/reader/Management.h"
#include "tools/reader/TraceFile.h"
#include "tools/Verbs.h"
#include "ZEBULib2.h"

using Json = nlohmann::ordered_json;

namespace {
constexpr int cs_iLooks = 50; // at a place where a line may be on its way
constexpr int cs_iPause = 2;  // milliseconds between them

std::string fs_mode(const struct stat& info)
{
    char szMode[8];
    (void)snprintf(szMode, sizeof szMode, "%04o", static_cast<unsigned>(info.st_mode & 07777));
    return szMode;
}

// "2026-11-22T10:00:00.123", or null.
Json fs_time(ZEBUTime lTime)
{
    if (lTime == ZEBU_TIME_NONE)
        return nullptr;
    std::string strTime = std::to_string(lTime);
    strTime.insert(0, 17 - std::min<size_t>(17, strTime.size()), '0');
    for (const auto& [uAt, pszText] :
         {std::pair{14, "."}, {12, ":"}, {10, ":"}, {8, "T"}, {6, "-"}, {4, "-"}})
        strTime.insert(static_cast<size_t>(uAt), pszText);
    return strTime;
}

// The process that holds a record lock on a file, or null.
Json fs_lockHolder(int iFd)
{
    struct flock lock = {.l_type = F_WRLCK, .l_whence = SEEK_SET, .l_start = 0, .l_len = 0, .l_pid = 0};
    if (fcntl(iFd, F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK)
        return nullptr;
    return lock.l_pid;
}

// How many other processes have a file open for writing, among those that can be looked into.
long fs_countWriters(int iFd)
{
    namespace fs = std::filesystem;
    struct stat wanted;
    std::error_code error;
    std::set<std::string> writers;
    if (fstat(iFd, &wanted) != 0)
        return 0;
    for (const auto& process : fs::directory_iterator("/proc", error)) {
        const std::string strPid = process.path().filename();
        if (strPid.find_first_not_of("0123456789") != strPid.npos || strPid == std::to_string(getpid()))
            continue;
        for (fs::directory_iterator open(process.path() / "fd", error), end; !error && open != end;
             open.increment(error)) {
            struct stat link; // its mode tells how the file was opened
            struct stat info;
            if (lstat(open->path().c_str(), &link) == 0 && (link.st_mode & S_IWUSR) != 0 &&
                stat(open->path().c_str(), &info) == 0 && ZEBU_IsSameFile(info, wanted))
                writers.insert(strPid);
        }
    }
    return static_cast<long>(writers.size());
}

// What a pass over the lines of one file found.
struct Contents
{
    long lBytes = 0;
    long lLines = 0;
    ZEBUTime lOldest = ZEBU_TIME_NONE;
    ZEBUTime lNewest = ZEBU_TIME_NONE;

    void add(const ZEBURecord& record)
    {
        lBytes += static_cast<long>(record.svBytes.size());
        lLines += record.eKind == ZEBURecordKind::Line ? 1 : 0;
        if (record.eKind == ZEBURecordKind::Text || record.lTime == ZEBU_TIME_NONE)
            return;
        lOldest = lOldest == ZEBU_TIME_NONE ? record.lTime : std::min(lOldest, record.lTime);
        lNewest = std::max(lNewest, record.lTime);
    }
};

class ZEBUDescriber
{
public:
    explicit ZEBUDescriber(const std::string& strName) : m_strName(strName) {}
    void describeArea();
    void describeSource();

    ZEBUDescription result;

private:
    void describeRecord();
    void checkCurrent(const ZEBUManagement& management, const ZEBURingRecord& record);
    void readSource();
    void describeFiles(ZEBUSourceKind eKind);
    void describeFile(const std::string& strPath, bool bMayBeShort);
    void warn(const std::string& strText) { result.warnings.push_back(strText); }

    const std::string m_strName;
    Json& m_facts = result.facts;
    Json m_files = Json::array();
    std::map<std::string, Contents> m_contents; // by file
    std::string m_strLast;                      // the file of the newest line
    ZEBURingRecord m_record;
    int m_iOpen = 0; // files that everybody may write
};

void ZEBUDescriber::describeArea()
{
    ZEBUArea area;
    const int iErrno = area.open(m_strName, false);
    if (iErrno != 0)
        throw ZEBUFailure{m_strName + ": " + (iErrno == EINVAL ? "is no trace area" : strerror(iErrno))};
    struct stat info = {};
    (void)stat(m_strName.c_str(), &info);
    m_facts["kind"] = "trace area";
    m_facts["path"] = m_strName;
    m_facts["mode"] = fs_mode(info);
    m_facts["drained"] = area.isLocked();
    ZEBUAreaOffsets offsets;
    if (!area.load(&offsets)) {
        warn("the header is damaged: every line is refused");
    } else {
        m_facts["data_size"] = offsets.uDataSize;
        m_facts["read_offset"] = offsets.uRead;
        m_facts["write_offset"] = offsets.uWrite;
        m_facts["unread"] = offsets.unread();
        m_facts["fill_percent"] = offsets.unread() * 100 / offsets.uDataSize;
        if (offsets.room() < ZEBU_LINE_MAX)
            warn("the area is full: lines of more than " + std::to_string(offsets.room()) +
                 " bytes are dropped");
    }
    if ((info.st_mode & S_IWOTH) != 0)
        result.modes.push_back(m_strName + " is writable by everybody");
}

void ZEBUDescriber::describeSource()
{
    static constexpr const char* szKinds[] = {"shared ring", "ring of one process", "file"};
    const ZEBUSourceKind eKind = ZEBU_SourceKind(m_strName);
    m_facts["kind"] = szKinds[static_cast<int>(eKind)];
    m_facts["name"] = m_strName;
    if (eKind == ZEBUSourceKind::SharedRing)
        describeRecord();
    if (const std::string strUse = eKind == ZEBUSourceKind::Plain ? ZEBU_OtherUse(m_strName) : "";
        !strUse.empty())
        throw ZEBUFailure{m_strName + " " + strUse};
    readSource();
    if (eKind == ZEBUSourceKind::SingleRing) {
        ZEBUTraceFile newest;
        m_facts["current_file"] = m_strLast.empty() ? Json() : Json(m_strLast);
        m_facts["lock_pid"] = newest.open(m_strLast) == 0 ? fs_lockHolder(newest.fd()) : Json();
        m_facts["writers"] = m_facts["lock_pid"].is_null() ? 0 : 1;
    }
    if (eKind == ZEBUSourceKind::Plain)
        describeFile(m_strName, true);
    else
        describeFiles(eKind);
    m_facts["files"] = m_files;
    if (m_iOpen > 0)
        result.modes.push_back(m_strName + ": everybody may write " + std::to_string(m_iOpen) +
                               " of its files");
}

void ZEBUDescriber::describeFiles(ZEBUSourceKind eKind)
{
    const bool bShared = eKind == ZEBUSourceKind::SharedRing;
    const std::vector<unsigned> numbers =
        bShared ? ZEBU_ExistingTraceFiles(m_strName, m_record.uFileNum) : ZEBU_ExistingTraceFiles(m_strName);
    const bool bNoFill = (m_record.uMode & ZEBU2_OPT_NOFILL) != 0;
    const bool bAll = bShared && (m_record.uMode & ZEBU2_OPT_CURRENT_ONLY) == 0;
    unsigned uExpected = bAll || numbers.empty() ? 1 : numbers.front();
    const auto warnOfMissing = [&](unsigned uNumber) {
        for (; uExpected < uNumber; ++uExpected)
            if (uExpected != m_record.position.uFile && (bAll || !bShared))
                warn(ZEBU_RingFileName(m_strName, uExpected) + " is missing inside the ring");
    };
    for (const unsigned u : numbers) {
        const std::string strPath = ZEBU_RingFileName(m_strName, u);
        warnOfMissing(u);
        uExpected = u + 1;
        describeFile(strPath, !bShared || (bNoFill && u != m_record.position.uFile));
        if (!bShared && u == numbers.front() && ZEBU_HasMark(strPath))
            warn(strPath + " holds an end-of-data mark, as files of a shared ring do, but " +
                 ZEBU_ManagementFileName(m_strName) + " is missing");
    }
    if (bAll)
        warnOfMissing(m_record.uFileNum + 1);
}

void ZEBUDescriber::describeRecord()
{
    const std::string strName = ZEBU_ManagementFileName(m_strName);
    ZEBUManagement management;
    const int iErrno = management.open(m_strName);
    if (iErrno != 0)
        throw ZEBUFailure{strName + ": " + strerror(iErrno)};
    struct stat info = {};
    (void)fstat(management.fd(), &info);
    m_facts["management_file"] = strName;
    m_facts["management_mode"] = fs_mode(info);
    const bool bValid = management.load(&m_record);
    if (!bValid) {
        warn(strName + " holds no valid record: what is shown of it was worked out from the files");
        ZEBU_DeriveRecord(m_strName, &m_record);
    }
    m_facts["file_size"] = m_record.uFileSize;
    m_facts["file_count"] = m_record.uFileNum;
    m_facts["current_file"] = ZEBU_RingFileName(m_strName, m_record.position.uFile);
    m_facts["write_offset"] = m_record.position.uOffset;
    m_facts["fill_percent"] =
        m_record.uFileSize == 0 ? 0 : m_record.position.uOffset * 100ul / m_record.uFileSize;
    m_facts["options"] = m_record.uMode & 0x3F;
    m_facts["lock_pid"] = fs_lockHolder(management.fd());
    m_facts["writers"] = fs_countWriters(management.fd());
    m_iOpen += (info.st_mode & S_IWOTH) != 0 ? 1 : 0;
    if (bValid)
        checkCurrent(management, m_record);
}

// Whether the data of the current file end where the record says. While writers are at work a line may be
// on its way, so it is looked at more than once.
void ZEBUDescriber::checkCurrent(const ZEBUManagement& management, const ZEBURingRecord& record)
{
    ZEBUPosition position = record.position;
    for (int i = 0; i < cs_iLooks; ++i) {
        const std::string strName = ZEBU_RingFileName(m_strName, position.uFile);
        ZEBUTraceFile file;
        const int iErrno = file.open(strName);
        if (iErrno == ENOENT)
            return warn(strName + ", the current file, is missing");
        if (iErrno != 0)
            return; // said where the files are described

        if (file.hasMarkAt(position.uOffset))
            return;
        const ZEBUPosition now = management.loadPosition();
        if (now != position && i > 0)
            return;
        position = now;
        ZEBU_Sleep(cs_iPause);
    }
    warn(m_facts["current_file"].get<std::string>() +
         ", the current file, does not end where the record says: it was replaced or damaged");
}

void ZEBUDescriber::readSource()
{
    int iErrno = 0;
    auto pSource = ZEBU_OpenSource(
        m_strName, false, [](const std::string&) {}, &iErrno);
    if (!pSource)
        throw ZEBUFailure{ZEBU_SourceFile(m_strName) + ": " + strerror(iErrno)};
    ZEBURecords records(std::move(pSource));
    ZEBURecord record;
    Contents all;
    while (records.next(&record) == ZEBUNext::Record) {
        all.add(record);
        m_contents[records.file()].add(record);
    }
    m_strLast = records.file();
    result.lOldest = all.lOldest;
    result.lNewest = all.lNewest;
    m_facts["lines"] = all.lLines;
    m_facts["oldest"] = fs_time(all.lOldest);
    m_facts["newest"] = fs_time(all.lNewest);
}

void ZEBUDescriber::describeFile(const std::string& strPath, bool bMayBeShort)
{
    struct stat info;
    if (stat(strPath.c_str(), &info) != 0)
        return;
    const Contents& contents = m_contents[strPath];
    m_files.push_back({{"path", strPath},
                       {"size", info.st_size},
                       {"live", contents.lBytes},
                       {"mode", fs_mode(info)},
                       {"lines", contents.lLines},
                       {"oldest", fs_time(contents.lOldest)},
                       {"newest", fs_time(contents.lNewest)}});
    ZEBUTraceFile file;
    if (const int iErrno = file.open(strPath, true); iErrno != 0)
        warn(strPath + " cannot be read: " + strerror(iErrno));
    if (!bMayBeShort && info.st_size < static_cast<off_t>(m_record.uFileSize))
        warn(strPath + " is shorter than the files of its ring");
    m_iOpen += (info.st_mode & S_IWOTH) != 0 ? 1 : 0;
}

} // namespace

ZEBUDescription ZEBU_DescribeArea(const std::string& strPath)
{
    ZEBUDescriber describer(strPath);
    describer.describeArea();
    return describer.result;
}

ZEBUDescription ZEBU_DescribeSource(const std::string& strSource)
{
    ZEBUDescriber describer(strSource);
    describer.describeSource();
    return describer.result;
}
