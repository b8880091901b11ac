#include "tools/reader/TraceFile.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

static constexpr size_t cs_uScanBlock = size_t{256} * 1024;

int ZEBUTraceFile::open(const std::string& strPath, bool bAnyKind)
{
    close();
    m_strPath = strPath;
    m_iFd = ::open(strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (m_iFd == -1)
        return errno;
    struct stat info;
    if (fstat(m_iFd, &info) != 0)
        return errno;
    if (S_ISREG(info.st_mode))
        return 0;
    if (bAnyKind && !S_ISDIR(info.st_mode) && fcntl(m_iFd, F_SETFL, O_RDONLY) == 0)
        return 0;
    close();
    return S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
}

int ZEBUTraceFile::adopt(int iFd, const std::string& strName)
{
    close();
    m_strPath = strName;
    m_iFd = iFd;
    return iFd == -1 ? errno : 0;
}

void ZEBUTraceFile::close()
{
    if (m_iFd != -1)
        (void)::close(m_iFd);
    m_iFd = -1;
    rewind(0);
}

bool ZEBUTraceFile::isReplaced() const
{
    struct stat opened;
    struct stat named;
    if (stat(m_strPath.c_str(), &named) != 0)
        return false;
    return m_iFd == -1 || fstat(m_iFd, &opened) != 0 || opened.st_ino != named.st_ino ||
           opened.st_dev != named.st_dev;
}

long ZEBUTraceFile::readAt(size_t uOffset, char* pBuffer, size_t uSize) const
{
    size_t uDone = 0;
    while (uDone < uSize) {
        const off_t iAt = static_cast<off_t>(uOffset + uDone);
        const ssize_t iRead = pread(m_iFd, pBuffer + uDone, uSize - uDone, iAt);
        if (iRead == 0)
            break;
        if (iRead > 0)
            uDone += static_cast<size_t>(iRead);
        else if (errno != EINTR)
            return -1;
    }
    return static_cast<long>(uDone);
}

long ZEBUTraceFile::readLive(char* pBuffer, size_t uSize) const
{
    const long lRead = readAt(m_uOffset, pBuffer, uSize);
    if (lRead <= 0)
        return lRead;
    return static_cast<long>(liveBytes({pBuffer, static_cast<size_t>(lRead)}));
}

size_t ZEBUTraceFile::liveBytes(std::string_view svBlock) const
{
    const auto before = [&](size_t u, size_t uBack) {
        return u >= uBack ? svBlock[u - uBack] : m_strLast[2 - (uBack - u)];
    };
    for (size_t u = svBlock.find(ZEBU_MARK); u != svBlock.npos; u = svBlock.find(ZEBU_MARK, u + 1))
        if (before(u, 2) == '\r' && before(u, 1) == '\n')
            return u;
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
    return isLineStart(uOffset) && readAt(uOffset, &cMark, 1) == 1 && cMark == ZEBU_MARK;
}

void ZEBUTraceFile::consume(std::string_view svBytes)
{
    if (m_strBeginning.size() < ZEBU_BEGINNING_MAX)
        m_strBeginning += svBytes.substr(0, ZEBU_BEGINNING_MAX - m_strBeginning.size());
    m_strLast += svBytes.substr(svBytes.size() - std::min<size_t>(2, svBytes.size()));
    m_strLast.erase(0, m_strLast.size() - 2);
    m_uOffset += svBytes.size();
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
    return lRead >= 0 && std::string_view(szNow, static_cast<size_t>(lRead)) == svText;
}

long ZEBU_FindEndOfData(const std::string& strPath)
{
    ZEBUTraceFile file;
    if (file.open(strPath) != 0)
        return -1;
    std::vector<char> block(cs_uScanBlock);
    long lRead;
    while ((lRead = file.readLive(block.data(), block.size())) > 0)
        file.consume({block.data(), static_cast<size_t>(lRead)});
    return lRead < 0 ? -1 : static_cast<long>(file.offset());
}
