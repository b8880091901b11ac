// tools/reader/Plain.cpp -- a file that is no ring: a backup, one trace file, or the standard input.
#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "tools/reader/Management.h"
#include "tools/reader/Source.h"
#include "tools/reader/TraceFile.h"

namespace {
class ZEBUPlain final : public ZEBUSource
{
public:
    ZEBUPlain(bool bFollow, const ZEBUWarn& warnUser) : ZEBUSource(warnUser), m_bFollow(bFollow) {}
    int open(const std::string& strPath, const ZEBUPlace* pFrom);
    ZEBURead read(char* pBuffer, size_t uSize, size_t* puRead) override;
    const std::string& file() const override { return m_strName; }
    std::vector<ZEBUSegment> segments() const override;
    void park() override { m_file.park(); }
    const ZEBUTraceFile* present(unsigned* puNumber) const override;

private:
    ZEBURead readStream(char* pBuffer, size_t uSize, size_t* puRead);
    void warnOfLikeness();

    const bool m_bFollow;
    std::string m_strName;
    ZEBUTraceFile m_file;
    bool m_bWarned = false;
    bool m_bStream = false; // cannot be read at an offset
    bool m_bMark = false;   // its end-of-data mark was read
    std::string m_strHeld;  // of a stream: what may be the beginning of one
    bool m_bGone = false;   // the place to go on at
};

int ZEBUPlain::open(const std::string& strPath, const ZEBUPlace* pFrom)
{
    m_strName = strPath;
    const int iErrno = strPath == "-" ? m_file.adopt(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0), strPath)
                                      : m_file.open(strPath, true);
    if (iErrno != 0)
        return iErrno;
    m_bStream = lseek(m_file.fd(), 0, SEEK_CUR) != 0;
    if (pFrom && !m_bStream && m_file.resume(*pFrom))
        setResumed();
    m_bGone = pFrom && !m_bStream && !isResumed();
    return 0;
}

// Only a file that is small enough to be of a shared ring is searched for a mark.
std::vector<ZEBUSegment> ZEBUPlain::segments() const
{
    struct stat info;
    if (m_bStream || fstat(m_file.fd(), &info) != 0)
        return {};
    return {{0, m_strName, static_cast<uint64_t>(info.st_size),
             info.st_size <= static_cast<off_t>(ZEBU2_FILE_SIZE_MAX_SHARED)}};
}

const ZEBUTraceFile* ZEBUPlain::present(unsigned* puNumber) const
{
    *puNumber = 0;
    return m_bStream ? nullptr : &m_file;
}

// A reader that follows other sources too must not wait here. What stands behind a mark is read, so that a
// writer can finish, but not shown.
ZEBURead ZEBUPlain::readStream(char* pBuffer, size_t uSize, size_t* puRead)
{
    pollfd wait = {.fd = m_file.fd(), .events = POLLIN, .revents = 0};
    for (;;) {
        if (m_bFollow && poll(&wait, 1, 0) == 0)
            return ZEBURead::Idle;
        const size_t uHeld = m_strHeld.copy(pBuffer, m_strHeld.size());
        const ssize_t iRead = ::read(m_file.fd(), pBuffer + uHeld, uSize - uHeld);
        if ((iRead < 0 && errno == EINTR) || (iRead > 0 && m_bMark))
            continue;
        if (iRead < 0)
            fail(m_strName + " cannot be read to its end: " + strerror(errno));
        const std::string_view svBlock(pBuffer, uHeld + static_cast<size_t>(std::max<ssize_t>(iRead, 0)));
        if (svBlock.empty() || m_bMark)
            return ZEBURead::End;
        *puRead = m_file.liveBytes(svBlock, iRead <= 0, &m_bMark);
        m_strHeld = m_bMark ? "" : svBlock.substr(*puRead);
        m_file.consume(svBlock.substr(0, *puRead));
        warnOfLikeness();
        if (*puRead > 0 || m_bMark)
            return *puRead > 0 ? ZEBURead::Bytes : ZEBURead::FileEnd;
    }
}

void ZEBUPlain::warnOfLikeness()
{
    if (m_file.sawLikeness() && !std::exchange(m_bWarned, true))
        warn(m_strName + ZEBU_LIKENESS_TEXT);
}

ZEBURead ZEBUPlain::read(char* pBuffer, size_t uSize, size_t* puRead)
{
    *puRead = 0;
    if (m_bStream)
        return readStream(pBuffer, uSize, puRead);
    const long lRead = m_file.readLive(pBuffer, uSize);
    if (lRead < 0) {
        fail(m_strName + " cannot be read to its end: " + strerror(errno));
        return ZEBURead::End;
    }
    if (std::exchange(m_bGone, false) || (m_bFollow && !m_file.isUnchanged())) {
        warn(m_strName + " was written anew");
        m_file.rewind(0);
        return gap(1);
    }
    if (lRead == 0)
        return m_bFollow ? ZEBURead::Idle : ZEBURead::End;
    *puRead = static_cast<size_t>(lRead);
    m_file.consume({pBuffer, *puRead});
    warnOfLikeness();
    return ZEBURead::Bytes;
}
} // namespace

std::unique_ptr<ZEBUSource> ZEBU_OpenPlain(const std::string& strPath, bool bFollow, const ZEBUWarn& warn,
                                           int* piErrno, const ZEBUPlace* pFrom)
{
    auto pSource = std::make_unique<ZEBUPlain>(bFollow, warn);
    *piErrno = pSource->open(strPath, pFrom);
    return *piErrno == 0 ? std::move(pSource) : nullptr;
}

ZEBUSourceKind ZEBU_SourceKind(const std::string& strName)
{
    struct stat info;
    if (strName != "-" && stat(ZEBU_ManagementFileName(strName).c_str(), &info) == 0)
        return ZEBUSourceKind::SharedRing;
    return ZEBU_ExistingTraceFiles(strName).empty() ? ZEBUSourceKind::Plain : ZEBUSourceKind::SingleRing;
}

std::string ZEBU_SourceFile(const std::string& strName)
{
    return ZEBU_SourceKind(strName) == ZEBUSourceKind::SharedRing ? ZEBU_ManagementFileName(strName)
                                                                  : strName;
}

std::unique_ptr<ZEBUSource> ZEBU_OpenSource(const std::string& strName, bool bFollow, const ZEBUWarn& warn,
                                            int* piErrno, const ZEBUPlace* pFrom)
{
    *piErrno = 0;
    switch (ZEBU_SourceKind(strName)) {
    case ZEBUSourceKind::SharedRing:
        return ZEBU_OpenSharedRing(strName, bFollow, warn, piErrno, pFrom);
    case ZEBUSourceKind::SingleRing:
        return ZEBU_OpenSingleRing(strName, bFollow, warn, pFrom);
    default:
        return ZEBU_OpenPlain(strName, bFollow, warn, piErrno, pFrom);
    }
}

void ZEBU_ReadBlocks(ZEBUSource& source, const ZEBUTake& take)
{
    std::string strBlock(ZEBU_READ_BLOCK, '\0');
    size_t uHeld = 0; // bytes of a line that goes on in the next block
    for (ZEBURead eRead = ZEBURead::Bytes; eRead != ZEBURead::End;) {
        size_t uRead = 0;
        eRead = source.read(strBlock.data() + uHeld, strBlock.size() - uHeld, &uRead);
        const std::string_view svBytes(strBlock.data(), eRead == ZEBURead::Gap ? 0 : uHeld + uRead);
        const size_t uTaken = take(svBytes, eRead);
        uHeld = svBytes.size() - uTaken;
        memmove(strBlock.data(), svBytes.data() + uTaken, uHeld);
    }
}
