// tools/Stat.cpp -- what state a ring, a file or the trace area is in, and what is wrong with it.
#include <errno.h>
#include <fcntl.h>
#include <map>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/reader/Area.h"
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

class ZEBUStat
{
public:
    explicit ZEBUStat(const ZEBUStatOptions& options) : m_options(options) {}
    int run();

private:
    void describeArea();
    void describeSource();
    void describeRecord();
    void checkCurrent(const ZEBUManagement& management, const ZEBURingRecord& record);
    void readSource();
    void describeFile(const std::string& strPath, bool bMayBeShort);
    void warn(const std::string& strText) { m_warnings.push_back(strText); }
    void print(ZEBUOutput& output) const;

    const ZEBUStatOptions& m_options;
    Json m_facts = Json::object();
    Json m_files = Json::array();
    std::vector<std::string> m_warnings;
    std::map<std::string, Contents> m_contents; // by file
    std::string m_strLast;                      // the file of the newest line
    ZEBURingRecord m_record;
};

int ZEBUStat::run()
{
    if (m_options.bArea)
        describeArea();
    else
        describeSource();
    m_facts["warnings"] = m_warnings;
    ZEBUOutput output(m_options.eFormat, ZEBUColor::Never);
    print(output);
    output.flush();
    return m_options.bCheck && !m_warnings.empty() ? ZEBU_EXIT_NOTHING : ZEBU_EXIT_OK;
}

void ZEBUStat::describeArea()
{
    const std::string strPath = m_options.strArea.empty() ? ZEBU_ConfiguredArea() : m_options.strArea;
    ZEBUArea area;
    const int iErrno = area.open(strPath, false);
    if (iErrno != 0)
        throw ZEBUFailure{strPath + ": " + (iErrno == EINVAL ? "is no trace area" : strerror(iErrno))};
    struct stat info = {};
    (void)stat(strPath.c_str(), &info);
    m_facts["kind"] = "trace area";
    m_facts["path"] = strPath;
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
        warn(strPath + " is writable by everybody");
}

void ZEBUStat::describeSource()
{
    static constexpr const char* szKinds[] = {"shared ring", "ring of one process", "file"};
    const ZEBUSourceKind eKind = ZEBU_SourceKind(m_options.strSource);
    m_facts["kind"] = szKinds[static_cast<int>(eKind)];
    m_facts["name"] = m_options.strSource;
    if (eKind == ZEBUSourceKind::SharedRing)
        describeRecord();
    readSource();
    if (eKind == ZEBUSourceKind::Plain) {
        describeFile(m_options.strSource, true);
    } else if (eKind == ZEBUSourceKind::SingleRing) {
        ZEBUTraceFile newest;
        m_facts["current_file"] = m_strLast.empty() ? Json() : Json(m_strLast);
        m_facts["lock_pid"] = newest.open(m_strLast) == 0 ? fs_lockHolder(newest.fd()) : Json();
    }
    for (const unsigned u : ZEBU_ExistingTraceFiles(m_options.strSource))
        describeFile(ZEBU_RingFileName(m_options.strSource, u),
                     eKind != ZEBUSourceKind::SharedRing ||
                         ((m_record.uMode & ZEBU2_OPT_NOFILL) != 0 && u != m_record.position.uFile));
    m_facts["files"] = m_files;
}

void ZEBUStat::describeRecord()
{
    const std::string strName = ZEBU_ManagementFileName(m_options.strSource);
    ZEBUManagement management;
    const int iErrno = management.open(m_options.strSource);
    if (iErrno != 0)
        throw ZEBUFailure{strName + ": " + strerror(iErrno)};
    struct stat info = {};
    (void)fstat(management.fd(), &info);
    m_facts["management_file"] = strName;
    m_facts["management_mode"] = fs_mode(info);
    const bool bValid = management.load(&m_record);
    if (!bValid) {
        warn(strName + " holds no valid record: what is shown of it was worked out from the files");
        ZEBU_DeriveRecord(m_options.strSource, &m_record);
    }
    m_facts["file_size"] = m_record.uFileSize;
    m_facts["file_count"] = m_record.uFileNum;
    m_facts["current_file"] = ZEBU_RingFileName(m_options.strSource, m_record.position.uFile);
    m_facts["write_offset"] = m_record.position.uOffset;
    m_facts["fill_percent"] =
        m_record.uFileSize == 0 ? 0 : m_record.position.uOffset * 100ul / m_record.uFileSize;
    m_facts["options"] = m_record.uMode & 0x3F;
    m_facts["lock_pid"] = fs_lockHolder(management.fd());
    if ((info.st_mode & S_IWOTH) != 0)
        warn(strName + " is writable by everybody");
    if (bValid)
        checkCurrent(management, m_record);
}

// Whether the data of the current file end where the record says. While writers are at work a line may be
// on its way, so it is looked at more than once.
void ZEBUStat::checkCurrent(const ZEBUManagement& management, const ZEBURingRecord& record)
{
    ZEBUPosition position = record.position;
    for (int i = 0; i < cs_iLooks; ++i) {
        const std::string strName = ZEBU_RingFileName(m_options.strSource, position.uFile);
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
        (void)poll(nullptr, 0, cs_iPause);
    }
    warn(m_facts["current_file"].get<std::string>() +
         ", the current file, does not end where the record says: it was replaced or damaged");
}

void ZEBUStat::readSource()
{
    int iErrno = 0;
    auto pSource = ZEBU_OpenSource(
        m_options.strSource, false, [](const std::string&) {}, &iErrno);
    if (!pSource)
        throw ZEBUFailure{m_options.strSource + ": " + strerror(iErrno)};
    ZEBURecords records(std::move(pSource));
    ZEBURecord record;
    Contents all;
    while (records.next(&record) == ZEBUNext::Record) {
        all.add(record);
        m_contents[records.file()].add(record);
    }
    m_strLast = records.file();
    m_facts["lines"] = all.lLines;
    m_facts["oldest"] = fs_time(all.lOldest);
    m_facts["newest"] = fs_time(all.lNewest);
}

void ZEBUStat::describeFile(const std::string& strPath, bool bMayBeShort)
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
    if ((info.st_mode & S_IWOTH) != 0)
        warn(strPath + " is writable by everybody");
}

void ZEBUStat::print(ZEBUOutput& output) const
{
    if (m_options.eFormat == ZEBUFormat::Json)
        return output.write(m_facts.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
    const auto text = [](const Json& value) {
        return value.is_string() ? value.get<std::string>() : value.is_null() ? "-" : value.dump();
    };
    const auto line = [&](const std::string& strName, const std::string& strText) {
        output.write(strName + std::string(strName.size() < 17 ? 17 - strName.size() : 1, ' '));
        output.writeText(strText);
        output.write("\n");
    };
    for (const auto& [strKey, value] : m_facts.items()) {
        if (!value.is_array())
            line(strKey, text(value));
        for (const Json& element : value.is_array() ? value : Json::array()) {
            std::string strText = element.is_string() ? text(element) : "";
            for (const auto& [strName, field] : element.items())
                strText +=
                    element.is_string() ? "" : (strName == "path" ? "" : "  " + strName + " ") + text(field);
            line(strKey == "files" ? "file" : "warning", strText);
        }
    }
}
} // namespace

int ZEBU_Stat(const ZEBUStatOptions& options)
{
    return ZEBUStat(options).run();
}
