// tools/reader/Area.cpp -- maps the area, and reads and moves its offsets.
#include "tools/reader/Area.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "tools/reader/TraceFile.h"

namespace {
constexpr size_t cs_uHeaderSize = sizeof(tagZEBU_AREA_HEADER);
constexpr int cs_iLockAttempts = 20; // another process may be looking whether the area is locked
constexpr int cs_iLockPause = 5;     // milliseconds

uint32_t fs_load(const uint32_t& uField)
{
    return __atomic_load_n(&uField, __ATOMIC_ACQUIRE);
}
} // namespace

int ZEBUArea::open(const std::string& strPath, bool bConsume)
{
    close();
    m_strPath = strPath;
    struct stat info;
    *m_fd.out() = ZEBU_OpenRegular(strPath, (bConsume ? O_RDWR : O_RDONLY) | O_NOFOLLOW, &info);
    if (m_fd.get() == -1)
        return errno == EISDIR ? EINVAL : errno;
    if (info.st_size <= static_cast<off_t>(cs_uHeaderSize))
        return EINVAL;
    const size_t uLength = static_cast<size_t>(info.st_size);
    void* pMap =
        mmap(nullptr, uLength, bConsume ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, m_fd.get(), 0);
    if (pMap == MAP_FAILED)
        return errno;
    m_pHeader = static_cast<tagZEBU_AREA_HEADER*>(pMap);
    m_uLength = uLength;
    return 0;
}

void ZEBUArea::close()
{
    if (m_pHeader)
        (void)munmap(m_pHeader, m_uLength);
    m_pHeader = nullptr;
    const ZEBUFd fd(m_fd.release());
}

// Never lockf: applications wait for that lock when they start.
bool ZEBUArea::lock()
{
    for (int i = 0; i < cs_iLockAttempts; ++i) {
        if (flock(m_fd.get(), LOCK_EX | LOCK_NB) == 0)
            return true;
        ZEBU_Sleep(cs_iLockPause);
    }
    return false;
}

bool ZEBUArea::isLocked() const
{
    if (flock(m_fd.get(), LOCK_SH | LOCK_NB) != 0)
        return true;
    (void)flock(m_fd.get(), LOCK_UN);
    return false;
}

bool ZEBUArea::load(ZEBUAreaOffsets* pOffsets) const
{
    pOffsets->uDataSize = fs_load(m_pHeader->uDataSize);
    pOffsets->uRead = fs_load(m_pHeader->uReadOffset);
    pOffsets->uWrite = fs_load(m_pHeader->uWriteOffset);
    return fs_load(m_pHeader->uMagic) == ZEBU_AREA_MAGIC && pOffsets->uDataSize > 0 &&
           uint64_t{pOffsets->uDataSize} + cs_uHeaderSize <= m_uLength &&
           pOffsets->uRead <= pOffsets->uDataSize && pOffsets->uWrite <= pOffsets->uDataSize;
}

void ZEBUArea::copy(const ZEBUAreaOffsets& offsets, uint32_t uFrom, char* pBuffer, size_t uBytes) const
{
    const size_t uToEnd = std::min<size_t>(uBytes, offsets.uDataSize - uFrom);
    const auto* pData = reinterpret_cast<const char*>(m_pHeader + 1);
    memcpy(pBuffer, pData + uFrom, uToEnd);
    memcpy(pBuffer + uToEnd, pData, uBytes - uToEnd);
}

void ZEBUArea::release(uint32_t uOffset)
{
    __atomic_store_n(&m_pHeader->uReadOffset, uOffset, __ATOMIC_RELEASE);
}

bool ZEBUArea::isReplaced() const
{
    struct stat opened;
    return fstat(m_fd.get(), &opened) != 0 || opened.st_size != static_cast<off_t>(m_uLength) ||
           ZEBU_IsReplaced(opened, m_strPath);
}
