#include "tools/reader/Area.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace {
constexpr size_t cs_uHeaderSize = 24;
constexpr size_t cs_uDataSizeOffset = 8;
constexpr size_t cs_uReadOffset = 12;
constexpr size_t cs_uWriteOffset = 16;
constexpr int cs_iLockAttempts = 20;    // another process may be looking whether the area is locked
constexpr long cs_lLockPause = 5000000; // nanoseconds
} // namespace

int ZEBUArea::open(const std::string& strPath, bool bConsume)
{
    close();
    m_strPath = strPath;
    const int iMode = bConsume ? O_RDWR : O_RDONLY;
    m_iFd = ::open(strPath.c_str(), iMode | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY);
    if (m_iFd == -1)
        return errno;
    struct stat info;
    if (fstat(m_iFd, &info) != 0)
        return errno;
    if (!S_ISREG(info.st_mode) || info.st_size <= static_cast<off_t>(cs_uHeaderSize))
        return EINVAL;
    const size_t uLength = static_cast<size_t>(info.st_size);
    void* pMap = mmap(nullptr, uLength, bConsume ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, m_iFd, 0);
    if (pMap == MAP_FAILED)
        return errno;
    m_pMap = static_cast<char*>(pMap);
    m_uLength = uLength;
    return 0;
}

void ZEBUArea::close()
{
    if (m_pMap)
        (void)munmap(m_pMap, m_uLength);
    if (m_iFd != -1)
        (void)::close(m_iFd);
    m_pMap = nullptr;
    m_iFd = -1;
}

// Never lockf: applications wait for that lock when they start.
bool ZEBUArea::lock()
{
    const timespec pause = {.tv_sec = 0, .tv_nsec = cs_lLockPause};
    for (int i = 0; i < cs_iLockAttempts; ++i) {
        if (flock(m_iFd, LOCK_EX | LOCK_NB) == 0)
            return true;
        (void)nanosleep(&pause, nullptr);
    }
    return false;
}

bool ZEBUArea::isLocked() const
{
    if (flock(m_iFd, LOCK_SH | LOCK_NB) != 0)
        return true;
    (void)flock(m_iFd, LOCK_UN);
    return false;
}

uint32_t ZEBUArea::loadField(size_t uOffset) const
{
    return __atomic_load_n(reinterpret_cast<const uint32_t*>(m_pMap + uOffset), __ATOMIC_ACQUIRE);
}

bool ZEBUArea::load(ZEBUAreaOffsets* pOffsets) const
{
    pOffsets->uDataSize = loadField(cs_uDataSizeOffset);
    pOffsets->uRead = loadField(cs_uReadOffset);
    pOffsets->uWrite = loadField(cs_uWriteOffset);
    return memcmp(m_pMap, "ZEBU", 4) == 0 && pOffsets->uDataSize > 0 &&
           uint64_t{pOffsets->uDataSize} + cs_uHeaderSize <= m_uLength &&
           pOffsets->uRead <= pOffsets->uDataSize && pOffsets->uWrite <= pOffsets->uDataSize;
}

void ZEBUArea::copy(const ZEBUAreaOffsets& offsets, uint32_t uFrom, char* pBuffer, size_t uBytes) const
{
    const size_t uToEnd = std::min<size_t>(uBytes, offsets.uDataSize - uFrom);
    memcpy(pBuffer, m_pMap + cs_uHeaderSize + uFrom, uToEnd);
    memcpy(pBuffer + uToEnd, m_pMap + cs_uHeaderSize, uBytes - uToEnd);
}

void ZEBUArea::release(uint32_t uOffset)
{
    __atomic_store_n(reinterpret_cast<uint32_t*>(m_pMap + cs_uReadOffset), uOffset, __ATOMIC_RELEASE);
}

bool ZEBUArea::isReplaced() const
{
    struct stat opened;
    struct stat named;
    if (fstat(m_iFd, &opened) != 0 || opened.st_size != static_cast<off_t>(m_uLength))
        return true;
    return stat(m_strPath.c_str(), &named) == 0 &&
           (named.st_ino != opened.st_ino || named.st_dev != opened.st_dev);
}
