// tools/reader/SingleRing.cpp -- the ring of one process: files that grow, and are emptied to be used again.
//
// Nothing tells the number of files or which one is current, so both come from the directory: the newest
// file is current, and while following, a file that changed since it was left is the next one.
#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include "tools/reader/Management.h"
#include "tools/reader/Source.h"
#include "tools/reader/TraceFile.h"

namespace {
// What shows that a file was written to.
struct Stamp
{
    ino_t uInode = 0;
    off_t iSize = -1;
    long lModified = 0; // nanoseconds
    bool operator==(const Stamp&) const = default;
};

class ZEBUSingleRing final : public ZEBUSource
{
public:
    ZEBUSingleRing(const std::string& strPrefix, bool bFollow, const ZEBUWarn& warnUser);
    ZEBURead read(char* pBuffer, size_t uSize, size_t* puRead) override;
    const std::string& file() const override { return m_file.path(); }

private:
    Stamp stampOf(unsigned uNumber) const;
    unsigned newestFile() const;
    ZEBURead readPresent(char* pBuffer, size_t uSize, size_t* puRead);
    unsigned nextNumber() const;
    unsigned changedFile() const;
    void enter(unsigned uNumber);
    ZEBURead lost();
    static unsigned after(unsigned uNumber) { return uNumber % ZEBU_RING_FILES_MAX + 1; }

    const std::string m_strPrefix;
    const bool m_bFollow;
    Stamp m_left[ZEBU_RING_FILES_MAX + 1]; // of each file when it was left, or at the start
    unsigned m_uNewestAtStart;
    bool m_bCaughtUp = false; // the file that was newest at the start is reached
    unsigned m_uNumber;
    ZEBUTraceFile m_file;
};

ZEBUSingleRing::ZEBUSingleRing(const std::string& strPrefix, bool bFollow, const ZEBUWarn& warnUser)
    : ZEBUSource(warnUser), m_strPrefix(strPrefix), m_bFollow(bFollow)
{
    for (unsigned u = 1; u <= ZEBU_RING_FILES_MAX; ++u)
        m_left[u] = stampOf(u);
    m_uNewestAtStart = newestFile();
    m_uNumber = m_uNewestAtStart;
    do
        m_uNumber = after(m_uNumber);
    while (m_left[m_uNumber].iSize < 0 && m_uNumber != m_uNewestAtStart);
    enter(m_uNumber);
}

Stamp ZEBUSingleRing::stampOf(unsigned uNumber) const
{
    struct stat info;
    if (stat(ZEBU_TraceFileName(m_strPrefix, uNumber).c_str(), &info) != 0)
        return {};
    return {info.st_ino, info.st_size, info.st_mtim.tv_sec * 1000000000 + info.st_mtim.tv_nsec};
}

// The file that was written to last. Files that were left within one tick of the file system's clock show
// the same time: of these it is the one that an older file, or the whole ring, follows.
unsigned ZEBUSingleRing::newestFile() const
{
    unsigned uNewest = 0;
    for (const unsigned u : ZEBU_ExistingTraceFiles(m_strPrefix))
        if (uNewest == 0 || m_left[u].lModified >= m_left[uNewest].lModified)
            uNewest = u;
    if (uNewest == 0)
        return 1;
    unsigned uLast = uNewest;
    for (unsigned u = after(uNewest); u != uNewest; u = after(u)) {
        if (m_left[u].iSize < 0)
            continue;
        if (m_left[u].lModified < m_left[uNewest].lModified)
            return uLast;
        uLast = u;
    }
    return uNewest;
}

void ZEBUSingleRing::enter(unsigned uNumber)
{
    m_uNumber = uNumber;
    m_bCaughtUp = m_bCaughtUp || uNumber == m_uNewestAtStart;
    const int iErrno = m_file.open(ZEBU_TraceFileName(m_strPrefix, uNumber));
    if (iErrno != 0 && iErrno != ENOENT)
        fail(m_file.path() + ": " + strerror(iErrno));
}

ZEBURead ZEBUSingleRing::read(char* pBuffer, size_t uSize, size_t* puRead)
{
    *puRead = 0;
    const ZEBURead eFirst = readPresent(pBuffer, uSize, puRead);
    if (eFirst != ZEBURead::Idle)
        return eFirst;
    const unsigned uNext = nextNumber();
    if (uNext == 0)
        return m_bFollow ? ZEBURead::Idle : ZEBURead::End;
    // The writer closes a file before it touches the next: now that the next is there, this one is complete,
    // but it may have grown since its end was found.
    const ZEBURead eSecond = readPresent(pBuffer, uSize, puRead);
    if (eSecond != ZEBURead::Idle)
        return eSecond;
    m_left[m_uNumber] = stampOf(m_uNumber);
    enter(uNext);
    return ZEBURead::FileEnd;
}

// Reads on in the present file. Idle at its end.
ZEBURead ZEBUSingleRing::readPresent(char* pBuffer, size_t uSize, size_t* puRead)
{
    if (!m_file.isOpen())
        return ZEBURead::Idle;
    const long lRead = m_file.readLive(pBuffer, uSize);
    if (!m_file.isUnchanged())
        return lost();
    if (lRead < 0)
        fail(m_file.path() + " cannot be read to its end: " + strerror(errno));
    if (lRead <= 0)
        return ZEBURead::Idle;
    *puRead = static_cast<size_t>(lRead);
    m_file.consume({pBuffer, *puRead});
    return ZEBURead::Bytes;
}

// The file to read after the present one, or 0.
unsigned ZEBUSingleRing::nextNumber() const
{
    if (m_bCaughtUp)
        return m_bFollow ? changedFile() : 0;
    unsigned uNext = after(m_uNumber);
    while (m_left[uNext].iSize < 0 && uNext != m_uNewestAtStart)
        uNext = after(uNext);
    return uNext;
}

// The file that the writer went on to, in ring order behind the present one, or 0. The present one counts
// when its name stands for another file by now.
unsigned ZEBUSingleRing::changedFile() const
{
    for (unsigned u = after(m_uNumber); u != m_uNumber; u = after(u)) {
        const Stamp now = stampOf(u);
        if (now != m_left[u] && now.iSize >= 0)
            return u;
    }
    return m_file.isReplaced() ? m_uNumber : 0;
}

// The present file was emptied under the reader. Before the place where the ring stood at the start, the
// rest of the ring is still to come; behind it, whatever changed is newer.
ZEBURead ZEBUSingleRing::lost()
{
    warn(m_file.path() + " was reused before it was read to its end: lines were lost");
    m_file.close();
    if (m_bCaughtUp && !m_bFollow)
        return ZEBURead::Gap;
    const unsigned uNext = nextNumber();
    enter(uNext != 0 ? uNext : m_uNumber);
    return ZEBURead::Gap;
}
} // namespace

std::unique_ptr<ZEBUSource> ZEBU_OpenSingleRing(const std::string& strPrefix, bool bFollow,
                                                const ZEBUWarn& warn)
{
    return std::make_unique<ZEBUSingleRing>(strPrefix, bFollow, warn);
}
