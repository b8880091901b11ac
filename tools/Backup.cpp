// tools/Backup.cpp -- copies a ring, oldest first, into one file.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/reader/Management.h"
#include "tools/Verbs.h"

namespace {
constexpr size_t cs_uBlock = size_t{256} * 1024;

bool fs_isSame(const struct stat& destination, const std::string& strName)
{
    struct stat info;
    return stat(strName.c_str(), &info) == 0 && info.st_ino == destination.st_ino &&
           info.st_dev == destination.st_dev;
}

// Opens the destination, and empties it when it is no file of the ring.
int fs_openDestination(const ZEBUBackupOptions& options)
{
    const int iFd = open(options.strDestination.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY, 0666);
    struct stat info;
    if (iFd == -1 || fstat(iFd, &info) != 0)
        throw ZEBUFailure{options.strDestination + ": " + strerror(errno)};
    bool bOfRing = fs_isSame(info, ZEBU_ManagementFileName(options.strPrefix));
    for (const unsigned u : ZEBU_ExistingTraceFiles(options.strPrefix))
        bOfRing = bOfRing || fs_isSame(info, ZEBU_RingFileName(options.strPrefix, u));
    if (bOfRing)
        throw ZEBUFailure{options.strDestination + " is a file of the ring"};
    if (S_ISREG(info.st_mode) && ftruncate(iFd, 0) != 0)
        throw ZEBUFailure{options.strDestination + ": " + strerror(errno)};
    return iFd;
}
} // namespace

int ZEBU_Backup(const ZEBUBackupOptions& options)
{
    if (ZEBU_SourceKind(options.strPrefix) == ZEBUSourceKind::Plain)
        throw ZEBUFailure{options.strPrefix + ": there is no ring with this prefix"};
    int iErrno = 0;
    bool bComplete = true;
    const auto pSource = ZEBU_OpenSource(options.strPrefix, false, ZEBU_Say, &iErrno);
    if (!pSource)
        throw ZEBUFailure{options.strPrefix + ": " + strerror(iErrno)};
    const int iFd = fs_openDestination(options);
    std::string strBlock(cs_uBlock, '\0');
    size_t uHeld = 0; // bytes of a line that goes on in the next block
    for (ZEBURead eRead = ZEBURead::Bytes; eRead != ZEBURead::End;) {
        size_t uRead = 0;
        eRead = pSource->read(strBlock.data() + uHeld, strBlock.size() - uHeld, &uRead);
        const std::string_view svHeld(strBlock.data(), eRead == ZEBURead::Gap ? 0 : uHeld + uRead);
        const size_t uWhole = eRead == ZEBURead::Bytes ? svHeld.rfind('\n') + 1 : 0;
        const std::string_view svOut = svHeld.substr(0, uWhole > 0 ? uWhole : svHeld.size());
        ZEBU_WriteFully(iFd, svOut, options.strDestination);
        uHeld = svHeld.size() - svOut.size();
        memmove(strBlock.data(), strBlock.data() + svOut.size(), uHeld);
        bComplete = bComplete && eRead != ZEBURead::Gap;
    }
    if (close(iFd) != 0)
        throw ZEBUFailure{options.strDestination + ": " + strerror(errno)};
    return bComplete && !pSource->hasFailed() ? ZEBU_EXIT_OK : ZEBU_EXIT_ERROR;
}
