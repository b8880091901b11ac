#include "tools/reader/Management.h"

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/reader/TraceFile.h"

namespace {
constexpr size_t cs_uRecordSize = 32;
constexpr size_t cs_uPositionOffset = 16; // write offset in the low half, current file in the high one
constexpr unsigned cs_uFileSizeMin = 4096;
constexpr unsigned cs_uFileSizeMax = 16777216;

bool fs_isFileSize(unsigned uSize)
{
    return uSize >= cs_uFileSizeMin && uSize <= cs_uFileSizeMax;
}
} // namespace

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

std::vector<unsigned> ZEBU_ExistingTraceFiles(const std::string& strPrefix, unsigned uLast)
{
    std::vector<unsigned> numbers;
    struct stat info;
    for (unsigned u = 1; u <= uLast; ++u)
        if (stat(ZEBU_RingFileName(strPrefix, u).c_str(), &info) == 0)
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
    m_iFd = ::open(m_strName.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (m_iFd == -1)
        return errno;
    struct stat info;
    if (fstat(m_iFd, &info) != 0)
        return errno;
    if (!S_ISREG(info.st_mode))
        return EINVAL;
    if (info.st_size < static_cast<off_t>(cs_uRecordSize))
        return 0;
    void* pMap = mmap(nullptr, cs_uRecordSize, PROT_READ, MAP_SHARED, m_iFd, 0);
    if (pMap == MAP_FAILED)
        return errno;
    m_pMap = static_cast<const char*>(pMap);
    return 0;
}

void ZEBUManagement::close()
{
    if (m_pMap)
        (void)munmap(const_cast<char*>(m_pMap), cs_uRecordSize);
    if (m_iFd != -1)
        (void)::close(m_iFd);
    m_pMap = nullptr;
    m_iFd = -1;
}

bool ZEBUManagement::load(ZEBURingRecord* pRecord) const
{
    if (!m_pMap)
        return false;
    const auto* pWords = reinterpret_cast<const uint32_t*>(m_pMap);
    pRecord->uFileSize = __atomic_load_n(pWords + 2, __ATOMIC_RELAXED);
    pRecord->uFileNum = __atomic_load_n(pWords + 3, __ATOMIC_RELAXED);
    pRecord->uMode = __atomic_load_n(pWords + 6, __ATOMIC_RELAXED);
    pRecord->position = loadPosition();
    return memcmp(m_pMap, "ZEBU", 4) == 0 && fs_isFileSize(pRecord->uFileSize) && pRecord->uFileNum >= 1 &&
           pRecord->uFileNum <= ZEBU_RING_FILES_MAX && pRecord->position.uFile >= 1 &&
           pRecord->position.uFile <= pRecord->uFileNum;
}

ZEBUPosition ZEBUManagement::loadPosition() const
{
    if (!m_pMap)
        return {};
    const auto* pWord = reinterpret_cast<const uint64_t*>(m_pMap + cs_uPositionOffset);
    const uint64_t uWord = __atomic_load_n(pWord, __ATOMIC_ACQUIRE);
    return {.uFile = static_cast<unsigned>(uWord >> 32), .uOffset = static_cast<unsigned>(uWord)};
}

bool ZEBUManagement::isReplaced() const
{
    struct stat opened;
    struct stat named;
    if (stat(m_strName.c_str(), &named) != 0)
        return false;
    return m_iFd == -1 || fstat(m_iFd, &opened) != 0 || opened.st_ino != named.st_ino ||
           opened.st_dev != named.st_dev;
}

void ZEBU_DeriveRecord(const std::string& strPrefix, ZEBURingRecord* pRecord)
{
    const std::vector<unsigned> numbers = ZEBU_ExistingTraceFiles(strPrefix);
    if (pRecord->uFileNum < 1 || pRecord->uFileNum > ZEBU_RING_FILES_MAX)
        pRecord->uFileNum = numbers.empty() ? 1 : numbers.back();
    pRecord->position = {.uFile = 1, .uOffset = 0};
    const unsigned uNewest = ZEBU_NewestRingFile(strPrefix, pRecord->uFileNum);
    if (uNewest == 0)
        return;
    const std::string strName = ZEBU_RingFileName(strPrefix, uNewest);
    struct stat info;
    if (!fs_isFileSize(pRecord->uFileSize) && stat(strName.c_str(), &info) == 0)
        pRecord->uFileSize = static_cast<unsigned>(info.st_size);
    const long lEnd = ZEBU_FindEndOfData(strName);
    if (lEnd >= 0 && lEnd < static_cast<long>(pRecord->uFileSize))
        pRecord->position = {.uFile = uNewest, .uOffset = static_cast<unsigned>(lEnd)};
    else
        pRecord->position.uFile = uNewest % pRecord->uFileNum + 1;
}
