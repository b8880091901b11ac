// tools/Backup.cpp -- copies a ring, oldest first, into one file.
#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/TrustedOpen.h"
#include "tools/reader/Management.h"
#include "tools/Verbs.h"

namespace {
// Where the copy goes: the standard output, a FIFO or a device, or a file, which is written beside its name
// and takes the name when it is complete: what failed half-way leaves the copy of yesterday alone.
class ZEBUDestination
{
public:
    ZEBUDestination(const std::string& strName, const std::string& strPrefix);
    ~ZEBUDestination();
    ZEBUDestination(const ZEBUDestination&) = delete;
    ZEBUDestination& operator=(const ZEBUDestination&) = delete;

    void write(std::string_view svBytes) const { ZEBU_WriteFully(m_fd.get(), svBytes, m_strName); }
    void finish();

private:
    void openBeside(mode_t uMode);
    [[noreturn]] void fail() const { throw ZEBUFailure{m_strName + ": " + strerror(errno)}; }

    std::string m_strName;   // a symbolic link followed
    std::string m_strBeside; // empty when the destination is written itself
    ZEBUFd m_fd;
};

// Throws when a file is one of the ring. Gives the permission bits that every file of the ring gives.
mode_t fs_narrowestMode(const std::string& strPrefix, const std::string& strName, const struct stat* pInfo)
{
    mode_t uMode = 0666;
    struct stat info;
    const auto look = [&](const std::string& strFile, bool bCopied) {
        if (stat(strFile.c_str(), &info) != 0)
            return;
        if (pInfo && ZEBU_IsSameFile(info, *pInfo))
            throw ZEBUFailure{strName + " is a file of the ring"};
        uMode &= bCopied ? info.st_mode : 0666;
    };
    look(ZEBU_ManagementFileName(strPrefix), false);
    for (const unsigned u : ZEBU_ExistingTraceFiles(strPrefix))
        look(ZEBU_RingFileName(strPrefix, u), true);
    return uMode;
}

ZEBUDestination::ZEBUDestination(const std::string& strName, const std::string& strPrefix)
    : m_strName(strName == "-" ? "standard output" : strName)
{
    struct stat info;
    if (lstat(m_strName.c_str(), &info) == 0 && S_ISLNK(info.st_mode)) {
        if (info.st_uid != 0 && info.st_uid != geteuid())
            throw ZEBUFailure{strName + " is a symbolic link that somebody else made"};
        m_strName = std::filesystem::weakly_canonical(strName);
    }
    const bool bExists = stat(m_strName.c_str(), &info) == 0;
    const mode_t uMode = fs_narrowestMode(strPrefix, m_strName, bExists ? &info : nullptr);
    bool bMade;
    if (strName == "-")
        *m_fd.out() = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    else if (!bExists || S_ISREG(info.st_mode))
        openBeside(bExists ? uMode & info.st_mode : uMode);
    else
        *m_fd.out() = ZEBU_OpenTrusted(m_strName.c_str(), O_WRONLY | O_NOCTTY, &bMade);
    if (m_fd.get() == -1)
        fail();
}

void ZEBUDestination::openBeside(mode_t uMode)
{
    std::string strBeside = m_strName + ".XXXXXX";
    *m_fd.out() = mkostemp(strBeside.data(), O_CLOEXEC); // with mode 0600
    if (m_fd.get() == -1)
        return;
    m_strBeside = strBeside;
    const mode_t uMask = umask(0);
    (void)umask(uMask);
    (void)fchmod(m_fd.get(), uMode & ~uMask);
}

ZEBUDestination::~ZEBUDestination()
{
    if (!m_strBeside.empty())
        (void)unlink(m_strBeside.c_str());
}

void ZEBUDestination::finish()
{
    if (!m_strBeside.empty() && fsync(m_fd.get()) != 0)
        fail();
    if (close(m_fd.release()) != 0)
        fail();
    if (!m_strBeside.empty() && rename(m_strBeside.c_str(), m_strName.c_str()) != 0)
        fail();
    m_strBeside.clear();
}

// Copies whole lines. Returns whether the ring did not overtake the reader.
bool fs_copy(ZEBUSource& source, const ZEBUDestination& destination)
{
    bool bComplete = true;
    ZEBUProgress progress;
    ZEBU_ReadBlocks(source, [&](std::string_view svBytes, ZEBURead eRead) {
        if (ZEBU_IsEnded())
            throw ZEBUEnded{};
        const size_t uWhole = eRead == ZEBURead::Bytes ? svBytes.rfind('\n') + 1 : 0;
        const size_t uTaken = uWhole > 0 ? uWhole : svBytes.size();
        destination.write(svBytes.substr(0, uTaken));
        progress.add(uTaken);
        bComplete = bComplete && eRead != ZEBURead::Gap;
        return uTaken;
    });
    return bComplete;
}
} // namespace

int ZEBU_Backup(const ZEBUBackupOptions& options)
{
    if (ZEBU_SourceKind(options.strPrefix) == ZEBUSourceKind::Plain)
        throw ZEBUFailure{options.strPrefix + ": there is no ring with this prefix"};
    int iErrno = 0;
    const auto pSource = ZEBU_OpenSource(options.strPrefix, false, ZEBU_Say, &iErrno);
    if (!pSource)
        throw ZEBUFailure{ZEBU_SourceFile(options.strPrefix) + ": " + strerror(iErrno)};
    ZEBU_EndOnSignals();
    ZEBUDestination destination(options.strDestination, options.strPrefix);
    bool bComplete;
    try {
        bComplete = fs_copy(*pSource, destination);
    } catch (const ZEBUEnded&) {
        throw ZEBUFailure{options.strDestination +
                          (ZEBU_IsEnded() ? ": interrupted" : ": nobody reads it any more")};
    }
    if (pSource->hasFailed())
        throw ZEBUFailure{"the copy is not complete: " + options.strDestination + " was left as it was"};
    destination.finish();
    return bComplete ? ZEBU_EXIT_OK : ZEBU_EXIT_ERROR;
}
