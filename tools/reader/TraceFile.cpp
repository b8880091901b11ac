// tools/reader/TraceFile.cpp -- reads with pread, so that a place is a number, and finds marks.
#include "tools/reader/TraceFile.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>
#include <vector>

#include "frame/TrustedOpen.h"
#include "multilog/EndOfData.h"
#include "output/LineFormat.h"

// A file of a shared ring is longer than the ring's size by one line at most.
static constexpr off_t cs_iSharedSizeMax = ZEBU2_FILE_SIZE_MAX_SHARED + off_t{2} * ZEBU_LINE_MAX;
static constexpr size_t cs_uScanBlock = size_t{256} * 1024;

// For the rest of a line.
static constexpr int cs_iRestPause = 2; // milliseconds
static constexpr int cs_iRestPauses = 25;
static constexpr time_t cs_lRestSeconds = 2; // since the last write: the clock of a file server may differ

int ZEBU_OpenRegular(const std::string& strPath, int iFlags, struct stat* pInfo, bool bAnyKind)
{
    bool bMade;
    iFlags |= O_CLOEXEC | O_NOCTTY;
    const bool bNamed = bAnyKind || (iFlags & O_NOFOLLOW) != 0;
    ZEBUFd fd(bNamed ? open(strPath.c_str(), iFlags | O_NONBLOCK)
                     : ZEBU_OpenTrusted(strPath.c_str(), iFlags | O_NONBLOCK, &bMade));
    if (fd.get() == -1 || fstat(fd.get(), pInfo) != 0)
        return -1;
    if (S_ISREG(pInfo->st_mode) ||
        (bAnyKind && !S_ISDIR(pInfo->st_mode) && fcntl(fd.get(), F_SETFL, iFlags) == 0))
        return fd.release();
    errno = S_ISDIR(pInfo->st_mode) ? EISDIR : EINVAL;
    return -1;
}

bool ZEBU_IsSameFile(const struct stat& a, const struct stat& b)
{
    return a.st_ino == b.st_ino && a.st_dev == b.st_dev;
}

bool ZEBU_IsReplaced(const struct stat& opened, const std::string& strPath)
{
    struct stat named;
    return stat(strPath.c_str(), &named) == 0 && !ZEBU_IsSameFile(opened, named);
}

void ZEBU_Sleep(int iMilliseconds)
{
    (void)poll(nullptr, 0, iMilliseconds);
}

long ZEBU_Milliseconds()
{
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

int ZEBUTraceFile::open(const std::string& strPath, bool bAnyKind)
{
    struct stat info;
    const int iFd = ZEBU_OpenRegular(strPath, O_RDONLY, &info, bAnyKind);
    const int iErrno = adopt(iFd, strPath);
    if (iErrno == 0)
        m_info = info;
    m_bRegular = iErrno == 0 && S_ISREG(info.st_mode);
    return iErrno;
}

void ZEBUTraceFile::park()
{
    const ZEBUFd fd(m_bRegular ? m_fd.release() : -1);
}

int ZEBUTraceFile::reopen() const
{
    struct stat info;
    ZEBUFd fd(ZEBU_OpenRegular(m_strPath, O_RDONLY, &info));
    if (fd.get() == -1)
        return -1;
    if (!ZEBU_IsSameFile(info, m_info)) {
        errno = ESTALE;
        return -1;
    }
    return *m_fd.out() = fd.release();
}

bool ZEBUTraceFile::waitForRest(int iPauses) const
{
    struct stat now;
    if (iPauses >= cs_iRestPauses || fstat(fd(), &now) != 0 || now.st_mtime < time(nullptr) - cs_lRestSeconds)
        return false;
    ZEBU_Sleep(cs_iRestPause);
    return true;
}

bool ZEBUTraceFile::isReplaced() const
{
    return ZEBU_IsReplaced(m_info, m_strPath);
}

int ZEBUTraceFile::adopt(int iFd, const std::string& strName)
{
    close();
    m_strPath = strName;
    *m_fd.out() = iFd;
    m_bOpen = iFd != -1;
    return m_bOpen ? 0 : errno;
}

void ZEBUTraceFile::close()
{
    const ZEBUFd fd(m_fd.release());
    m_bOpen = m_bRegular = false;
    m_info = {};
    rewind(0);
}

long ZEBUTraceFile::readAt(size_t uOffset, char* pBuffer, size_t uSize) const
{
    size_t uDone = 0;
    const int iFd = fd();
    if (iFd == -1)
        return -1;
    while (uDone < uSize) {
        const off_t iAt = static_cast<off_t>(uOffset + uDone);
        const ssize_t iRead = pread(iFd, pBuffer + uDone, uSize - uDone, iAt);
        if (iRead == 0)
            break;
        if (iRead > 0)
            uDone += static_cast<size_t>(iRead);
        else if (errno != EINTR)
            return -1;
    }
    return static_cast<long>(uDone);
}

long ZEBUTraceFile::readLive(char* pBuffer, size_t uSize)
{
    const long lRead = readAt(m_uOffset, pBuffer, uSize);
    if (lRead <= 0)
        return lRead;
    const auto uRead = static_cast<size_t>(lRead);
    bool bMark;
    const size_t uLive = liveBytes({pBuffer, uRead}, uRead < uSize, &bMark);
    return uLive > 0 || bMark ? static_cast<long>(uLive) : lRead; // a block too small for a mark holds none
}

size_t ZEBUTraceFile::liveBytes(std::string_view svBlock, bool bEnd, bool* pbMark)
{
    const auto before = [&](size_t u, size_t uBack) {
        return u >= uBack ? svBlock[u - uBack] : m_strLast[2 - (uBack - u)];
    };
    *pbMark = false;
    for (size_t u = svBlock.find(ZEBU_EOD_BYTE); u != svBlock.npos; u = svBlock.find(ZEBU_EOD_BYTE, u + 1)) {
        if (before(u, 2) != '\r' || before(u, 1) != '\n')
            continue;
        const std::string_view svText = svBlock.substr(u + 1, ZEBU_EOD_LENGTH);
        *pbMark = svText == ZEBU_EOD_TEXT;
        if (*pbMark || (!bEnd && std::string_view(ZEBU_EOD_TEXT).starts_with(svText)))
            return u;
        m_bLikeness = true;
    }
    return svBlock.size();
}

bool ZEBUTraceFile::isLineStart(size_t uOffset) const
{
    char szBefore[2];
    return uOffset == 0 || (uOffset >= 2 && readAt(uOffset - 2, szBefore, 2) == 2 && szBefore[0] == '\r' &&
                            szBefore[1] == '\n');
}

bool ZEBUTraceFile::hasMarkAt(size_t uOffset) const
{
    char cMark;
    return isLineStart(uOffset) && readAt(uOffset, &cMark, 1) == 1 && cMark == ZEBU_EOD_BYTE;
}

void ZEBUTraceFile::consume(std::string_view svBytes)
{
    if (m_strBeginning.size() < ZEBU_BEGINNING_MAX)
        m_strBeginning += svBytes.substr(0, ZEBU_BEGINNING_MAX - m_strBeginning.size());
    m_strLast += svBytes.substr(svBytes.size() - std::min<size_t>(2, svBytes.size()));
    m_strLast.erase(0, m_strLast.size() - 2);
    m_uOffset += svBytes.size();
}

bool ZEBUTraceFile::resume(const ZEBUPlace& place)
{
    char szBeginning[ZEBU_BEGINNING_MAX];
    char szRecord[ZEBU_PLACE_LINE_MAX];
    const size_t uRecord = std::min<size_t>(place.uRecord, sizeof szRecord);
    const size_t uBeginning = std::min<size_t>(place.uOffset, sizeof szBeginning);
    rewind(0);
    if (readAt(0, szBeginning, uBeginning) != static_cast<long>(uBeginning) ||
        readAt(place.uOffset - place.uRecord, szRecord, uRecord) != static_cast<long>(uRecord))
        return false;
    if ((place.uBeginning > 0 && ZEBU_Fingerprint({szBeginning, place.uBeginning}) != place.uBeginningHash) ||
        (uRecord > 0 && ZEBU_Fingerprint({szRecord, uRecord}) != place.uRecordHash))
        return false;
    m_uOffset = place.uOffset;
    m_strBeginning.assign(szBeginning, uBeginning);
    char szLast[2];
    if (m_uOffset >= sizeof szLast &&
        readAt(m_uOffset - sizeof szLast, szLast, sizeof szLast) == sizeof szLast)
        m_strLast.assign(szLast, sizeof szLast);
    return true;
}

bool ZEBUTraceFile::isNamed() const
{
    struct stat named;
    return stat(m_strPath.c_str(), &named) == 0 && ZEBU_IsSameFile(m_info, named);
}

void ZEBUTraceFile::rewind(size_t uOffset)
{
    m_uOffset = uOffset;
    m_strBeginning.resize(std::min(m_strBeginning.size(), uOffset));
    m_strLast = "\r\n";
}

bool ZEBUTraceFile::beginsWith(std::string_view svText) const
{
    char szNow[ZEBU_BEGINNING_MAX];
    const long lRead = readAt(0, szNow, svText.size());
    if (lRead < 0)
        return errno != ESTALE && errno != ENOENT;
    return std::string_view(szNow, static_cast<size_t>(lRead)) == svText;
}

bool ZEBU_HasMark(const std::string& strPath)
{
    ZEBUTraceFile file;
    std::vector<char> block(cs_uScanBlock);
    struct stat info;
    if (file.open(strPath) != 0 || fstat(file.fd(), &info) != 0 || info.st_size > cs_iSharedSizeMax)
        return false;
    long lRead;
    while ((lRead = file.readLive(block.data(), block.size())) > 0)
        file.consume({block.data(), static_cast<size_t>(lRead)});
    return lRead == 0 && static_cast<off_t>(file.offset()) < info.st_size;
}
