// tools/reader/Management.h -- the names of a ring's files, and the record of a shared ring.
//
// The management file is mapped read-only and never locked. Its fields are written by other processes at
// any moment: each is loaded once, and nothing is believed before it was checked.
#ifndef ZEBU_TOOLS_READER_MANAGEMENT_H
#define ZEBU_TOOLS_READER_MANAGEMENT_H

#include <string>
#include <vector>

#include "multilog/Record.h"
#include "tools/reader/TraceFile.h"

constexpr unsigned ZEBU_RING_FILES_MAX = ZEBU2_FILE_COUNT_MAX_SHARED;

// File `uNumber` of the ring, and the management file of a shared one.
std::string ZEBU_RingFileName(const std::string& strPrefix, unsigned uNumber);
std::string ZEBU_ManagementFileName(const std::string& strPrefix);

// Whether app12.log, say, is not file 12 of the ring app but file 2 of the ring app1: that one has a file 1,
// and app has fewer files by its record, or without one no file 10.
bool ZEBU_IsOfOtherRing(const std::string& strPrefix, unsigned uNumber);

// The numbers of the trace files that exist, rising, up to `uLast`.
std::vector<unsigned> ZEBU_ExistingTraceFiles(const std::string& strPrefix,
                                              unsigned uLast = ZEBU_RING_FILES_MAX);

// The one of them that was modified last, 0 without one. Of files of the same second the highest number:
// that is the rule by which the writers go on in a ring.
unsigned ZEBU_NewestRingFile(const std::string& strPrefix, unsigned uLast = ZEBU_RING_FILES_MAX);

// Where the next line goes.
struct ZEBUPosition
{
    unsigned uFile = 0;
    unsigned uOffset = 0;
    bool operator==(const ZEBUPosition&) const = default;
};

struct ZEBURingRecord
{
    unsigned uFileSize = 0;
    unsigned uFileNum = 0;
    unsigned uMode = 0;
    ZEBUPosition position;
};

class ZEBUManagement
{
public:
    ZEBUManagement() = default;
    ~ZEBUManagement() { close(); }
    ZEBUManagement(const ZEBUManagement&) = delete;
    ZEBUManagement& operator=(const ZEBUManagement&) = delete;

    // Maps the management file of a ring. Returns 0 or the errno. A file too short for a record opens, and
    // its record is then invalid.
    int open(const std::string& strPrefix);
    void close();
    int fd() const { return m_fd.get(); }

    // The mapping stays.
    void closeDescriptor() { const ZEBUFd fd(m_fd.release()); }

    // Loads the record; false when it is not valid.
    bool load(ZEBURingRecord* pRecord) const;

    // The file and offset, which writers store as one word when the ring moves on. Only after open.
    ZEBUPosition loadPosition() const;

    // Whether the name stands for another file by now; also when none is open, or one without a record.
    bool isReplaced() const { return ZEBU_IsReplaced(m_info, m_strName); }

private:
    ZEBUFd m_fd;
    const tagZEBU_MANAGEMENT_DATA* m_pMap = nullptr;
    struct stat m_info = {}; // of the file that is mapped
    std::string m_strName;
};

// Works the record out from the trace files, as the next writer will do it. Fields of the damaged record
// that are plausible are kept in `*pRecord`.
void ZEBU_DeriveRecord(const std::string& strPrefix, ZEBURingRecord* pRecord);

#endif
