// tools/reader/Cursor.cpp -- the file in which places are kept between two runs.
#include "tools/reader/Cursor.h"

#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <inttypes.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include "tools/reader/TraceFile.h"

namespace {
constexpr std::string_view cs_svTitle = "zebu2 cursor 1\n";
constexpr size_t cs_uBlock = 65536;

// Without looking at the file system: the source need not exist at the time.
std::string fs_absolute(const std::string& strSource)
{
    std::error_code error;
    const auto path = std::filesystem::absolute(strSource, error);
    return error ? strSource : path.lexically_normal().string();
}

// A name in one line.
std::string fs_escaped(const std::string& strName)
{
    std::string strOut;
    for (const char c : strName)
        strOut += c == '\\' ? "\\\\" : c == '\n' ? "\\n" : std::string(1, c);
    return strOut;
}

std::string fs_unescaped(std::string_view svName)
{
    std::string strOut;
    for (size_t u = 0; u < svName.size(); ++u) {
        const bool bEscape = svName[u] == '\\' && u + 1 < svName.size();
        u += bEscape;
        strOut += bEscape && svName[u] == 'n' ? '\n' : svName[u];
    }
    return strOut;
}

std::string fs_line(const std::string& strSource, const ZEBUPlace& place)
{
    char szPlace[160];
    (void)snprintf(szPlace, sizeof szPlace,
                   "%u %" PRIu64 " %" PRIu32 " %016" PRIx64 " %" PRIu32 " %016" PRIx64 " %d ", place.uFile,
                   place.uOffset, place.uBeginning, place.uBeginningHash, place.uRecord, place.uRecordHash,
                   place.bShown);
    return szPlace + fs_escaped(strSource) + "\n";
}

bool fs_readLine(const std::string& strLine, std::string* pstrSource, ZEBUPlace* pPlace)
{
    int iShown = 0;
    int iEnd = 0;
    const int iRead =
        sscanf(strLine.c_str(), "%u %" SCNu64 " %" SCNu32 " %" SCNx64 " %" SCNu32 " %" SCNx64 " %1d%n",
               &pPlace->uFile, &pPlace->uOffset, &pPlace->uBeginning, &pPlace->uBeginningHash,
               &pPlace->uRecord, &pPlace->uRecordHash, &iShown, &iEnd);
    const size_t uName = static_cast<size_t>(iEnd) + 1;
    if (iRead != 7 || strLine.size() <= uName || pPlace->uBeginning > ZEBU_BEGINNING_MAX ||
        pPlace->uBeginning > pPlace->uOffset || pPlace->uRecord > pPlace->uOffset)
        return false;
    pPlace->bShown = iShown != 0;
    *pstrSource = fs_unescaped(std::string_view(strLine).substr(uName));
    return true;
}

// What is wrong with a file, or an empty text.
std::string fs_readAll(const std::string& strFile, std::string* pstrBytes)
{
    ZEBUTraceFile file;
    const int iErrno = file.open(strFile);
    if (iErrno != 0)
        return iErrno == ENOENT ? "" : strFile + ": " + strerror(iErrno);
    long lRead;
    do {
        const size_t uOld = pstrBytes->size();
        pstrBytes->resize(uOld + cs_uBlock);
        lRead = file.readAt(uOld, pstrBytes->data() + uOld, cs_uBlock);
        pstrBytes->resize(uOld + static_cast<size_t>(lRead < 0 ? 0 : lRead));
    } while (lRead > 0);
    return lRead < 0 ? strFile + ": " + strerror(errno) : "";
}

int fs_writeAll(int iFd, std::string_view svBytes)
{
    while (!svBytes.empty()) {
        const ssize_t iWritten = write(iFd, svBytes.data(), svBytes.size());
        if (iWritten < 0 && errno != EINTR)
            return errno;
        svBytes.remove_prefix(static_cast<size_t>(iWritten < 0 ? 0 : iWritten));
    }
    return 0;
}
} // namespace

std::string ZEBUCursor::load(const std::string& strFile)
{
    m_strFile = strFile;
    std::string strBytes;
    std::string strError = lock();
    if (strError.empty())
        strError = fs_readAll(strFile, &strBytes);
    if (!strError.empty() || strBytes.empty())
        return strError;
    std::string strForeign = strFile + " is no cursor file of zebu2";
    if (!strBytes.starts_with(cs_svTitle) || strBytes.back() != '\n')
        return strForeign;
    for (size_t u = cs_svTitle.size(); u < strBytes.size();) {
        const size_t uEnd = strBytes.find('\n', u);
        std::string strSource;
        ZEBUPlace place;
        if (!fs_readLine(strBytes.substr(u, uEnd - u), &strSource, &place))
            return strForeign;
        m_places[strSource] = place;
        u = uEnd + 1;
    }
    return "";
}

std::string ZEBUCursor::lock()
{
    const std::string strLock = m_strFile + ".lock";
    *m_lock.out() = open(strLock.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY, 0600);
    if (m_lock.get() == -1)
        return strLock + ": " + strerror(errno);
    if (flock(m_lock.get(), LOCK_EX | LOCK_NB) == 0)
        return "";
    return errno == EWOULDBLOCK ? m_strFile + " is the cursor of a run that goes on"
                                : strLock + ": " + strerror(errno);
}

const ZEBUPlace* ZEBUCursor::find(const std::string& strSource) const
{
    const auto found = m_places.find(fs_absolute(strSource));
    return found == m_places.end() ? nullptr : &found->second;
}

void ZEBUCursor::set(const std::string& strSource, const ZEBUPlace& place)
{
    ZEBUPlace& old = m_places[fs_absolute(strSource)];
    m_bChanged = m_bChanged || old != place;
    old = place;
}

std::string ZEBUCursor::save()
{
    if (!m_bChanged)
        return "";
    std::string strBytes(cs_svTitle);
    for (const auto& [strSource, place] : m_places)
        strBytes += fs_line(strSource, place);
    const std::string strBeside = m_strFile + ".new";
    const int iFd =
        open(strBeside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY, 0600);
    if (iFd == -1)
        return strBeside + ": " + strerror(errno);
    int iErrno = fs_writeAll(iFd, strBytes);
    if (close(iFd) != 0 && iErrno == 0)
        iErrno = errno;
    if (iErrno == 0 && rename(strBeside.c_str(), m_strFile.c_str()) != 0)
        iErrno = errno;
    if (iErrno != 0)
        return m_strFile + ": " + strerror(iErrno);
    m_bChanged = false;
    return "";
}
