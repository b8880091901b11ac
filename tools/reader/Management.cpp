// tools/reader/Management.cpp -- names of files, and the record as it is mapped or worked out from the files.
#include "tools/reader/Management.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "multilog/EndOfData.h"
#include "tools/reader/TraceFile.h"

std::string ZEBU_RingFileName(const std::string& strPrefix, unsigned uNumber)
{
    return strPrefix + std::to_string(uNumber) + ".log";
}

std::string ZEBU_ManagementFileName(const std::string& strPrefix)
{
    const size_t uSlash = strPrefix.rfind('/');
    const std::string strDirectory = uSlash == strPrefix.npos ? "." : strPrefix.substr(0, uSlash);
    return strDirectory + "/mmap/" + strPrefix.substr(uSlash + 1) + ".mm";
}

bool ZEBU_IsOfOtherRing(const std::string& strPrefix, unsigned uNumber)
{
    struct stat info;
    const auto exists = [&](const std::string& strName) { return stat(strName.c_str(), &info) == 0; };
    const std::string strOther = strPrefix + std::to_string(uNumber / 10);
    if (uNumber < 11 || uNumber % 10 == 0 || !exists(ZEBU_RingFileName(strOther, 1)))
        return false;
    ZEBUManagement management;
    ZEBURingRecord record;
    if (management.open(strPrefix) == 0 && management.load(&record))
        return uNumber > record.uFileNum;
    return !exists(ZEBU_RingFileName(strPrefix, uNumber / 10 * 10));
}

std::vector<unsigned> ZEBU_ExistingTraceFiles(const std::string& strPrefix, unsigned uLast)
{
    std::vector<unsigned> numbers;
    struct stat info;
    for (unsigned u = 1; u <= uLast; ++u)
        if (stat(ZEBU_RingFileName(strPrefix, u).c_str(), &info) == 0 && !ZEBU_IsOfOtherRing(strPrefix, u))
            numbers.push_back(u);
    return numbers;
}

unsigned ZEBU_NewestRingFile(const std::string& strPrefix, unsigned uLast)
{
    unsigned uNewest = 0;
    time_t newest = 0;
    for (const unsigned u : ZEBU_ExistingTraceFiles(strPrefix, uLast)) {
        struct stat info;
        if (stat(ZEBU_RingFileName(strPrefix, u).c_str(), &info) != 0)
            continue;
        if (uNewest != 0 && info.st_mtime < newest)
            continue;
        uNewest = u;
        newest = info.st_mtime;
    }
    return uNewest;
}

int ZEBUManagement::open(const std::string& strPrefix)
{
    close();
    m_strName = ZEBU_ManagementFileName(strPrefix);
    struct stat info;
    *m_fd.out() = ZEBU_OpenRegular(m_strName, O_RDONLY, &info);
    if (fd() == -1)
        return errno;
    if (info.st_size < static_cast<off_t>(sizeof *m_pMap))
        return 0;
    void* pMap = mmap(nullptr, sizeof *m_pMap, PROT_READ, MAP_SHARED, fd(), 0);
    if (pMap == MAP_FAILED)
        return errno;
    m_pMap = static_cast<const tagZEBU_MANAGEMENT_DATA*>(pMap);
    m_info = info;
    return 0;
}

void ZEBUManagement::close()
{
    if (m_pMap)
        (void)munmap(const_cast<tagZEBU_MANAGEMENT_DATA*>(m_pMap), sizeof *m_pMap);
    m_pMap = nullptr;
    m_info = {};
    const ZEBUFd fd(m_fd.release());
}

bool ZEBUManagement::load(ZEBURingRecord* pRecord) const
{
    tagZEBU_MANAGEMENT_DATA rec;
    if (!m_pMap)
        return false;
    const bool bValid = ZEBU_ReadAndCheckManagementFile(m_pMap, &rec) == 0;
    *pRecord = {rec.fileSize, rec.fileNum, rec.mode, {rec.currentFile, rec.writeOffset}};
    return bValid;
}

ZEBUPosition ZEBUManagement::loadPosition() const
{
    tagZEBU_MANAGEMENT_DATA rec;
    if (!m_pMap)
        return {};
    ZEBU_LoadPosition(m_pMap, &rec);
    return {rec.currentFile, rec.writeOffset};
}

void ZEBU_DeriveRecord(const std::string& strPrefix, ZEBURingRecord* pRecord)
{
    const std::vector<unsigned> numbers = ZEBU_ExistingTraceFiles(strPrefix);
    if (!ZEBU_IsSharedFileCount(pRecord->uFileNum))
        pRecord->uFileNum = numbers.empty() ? 1 : numbers.back();
    pRecord->position = {.uFile = 1, .uOffset = 0};
    const unsigned uNewest = ZEBU_NewestRingFile(strPrefix, pRecord->uFileNum);
    if (uNewest == 0)
        return;
    struct stat info;
    const ZEBUFd fd(ZEBU_OpenRegular(ZEBU_RingFileName(strPrefix, uNewest), O_RDONLY, &info));
    if (!ZEBU_IsSharedFileSize(pRecord->uFileSize) && fd.get() != -1)
        pRecord->uFileSize = static_cast<unsigned>(info.st_size);
    const long lEnd = fd.get() == -1 ? -1 : ZEBU_SearchEndOfData(fd.get());
    if (lEnd >= 0 && lEnd < static_cast<long>(pRecord->uFileSize))
        pRecord->position = {.uFile = uNewest, .uOffset = static_cast<unsigned>(lEnd)};
    else
        pRecord->position.uFile = uNewest % pRecord->uFileNum + 1;
}
