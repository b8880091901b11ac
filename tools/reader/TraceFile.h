// tools/reader/TraceFile.h -- one file that is read while others may write, reuse or remove it.
#ifndef ZEBU_TOOLS_READER_TRACEFILE_H
#define ZEBU_TOOLS_READER_TRACEFILE_H

#include <string>
#include <string_view>
#include <sys/stat.h>

#include "frame/Fd.h"
#include "tools/reader/Place.h"

// Opens a regular file without waiting for anything; with `bAnyKind` pipes and devices too. The directories
// of rings are open to everybody: a symbolic link that a stranger made is followed only with `bAnyKind`, for
// a file that the user named, and none is with O_NOFOLLOW. Returns the descriptor and what fstat says of it,
// or -1 with errno, EISDIR and EINVAL for what is of another kind.
int ZEBU_OpenRegular(const std::string& strPath, int iFlags, struct stat* pInfo, bool bAnyKind = false);

// Whether two looks were at the same file, and whether a name stands for another file that exists than one
// that was looked at.
bool ZEBU_IsSameFile(const struct stat& a, const struct stat& b);
bool ZEBU_IsReplaced(const struct stat& opened, const std::string& strPath);

// One way to wait for what another process is about to do.
void ZEBU_Sleep(int iMilliseconds);

// A clock that is never set.
long ZEBU_Milliseconds();

// What is said of a file where bytes look like an end-of-data mark.
constexpr char ZEBU_LIKENESS_TEXT[] =
    " holds bytes that look like an end-of-data mark and are none: a logged text";

// An open file and the place that was read up to. A file of a ring is reused from its first byte on: the
// beginning that was read is kept and compared, so that a reader notices when its place is gone.
class ZEBUTraceFile
{
public:
    // Opens a file for reading from its beginning, without waiting for anything. Returns 0 or the errno.
    // Only ordinary files are taken, unless `bAnyKind`: then pipes and devices too.
    int open(const std::string& strPath, bool bAnyKind = false);
    // Takes a descriptor, which may be -1, under a name.
    int adopt(int iFd, const std::string& strName);
    void close();
    bool isOpen() const { return m_bOpen; }
    int fd() const { return m_fd.get() == -1 && m_bOpen ? reopen() : m_fd.get(); }

    // Gives the descriptor back until the file is read again, so that many can be open. Then the name must
    // still stand for the same file: else nothing can be read any more, with ESTALE.
    void park();

    const std::string& path() const { return m_strPath; }
    size_t offset() const { return m_uOffset; }

    // Pauses for what its writer has begun to write, if that may still come: false after so many pauses, and
    // where nobody has written to the file for long.
    bool waitForRest(int iPauses) const;

    // Whether its name stands for another file that exists; also when no file is open.
    bool isReplaced() const;

    // Reads at an offset, fewer bytes than asked for only at the end of the file. -1 with errno.
    long readAt(size_t uOffset, char* pBuffer, size_t uSize) const;

    // Reads at offset() at most up to the end-of-data mark: 0 there and at the end of the file, or -1. The
    // mark counts when all of it stands there, at the start of a line: a text may hold its first byte.
    long readLive(char* pBuffer, size_t uSize);

    // How many bytes of a block that begins at offset() are known to stand before an end-of-data mark; the
    // rest begins with the mark, or may, unless `bEnd`: nothing follows the block.
    size_t liveBytes(std::string_view svBlock, bool bEnd, bool* pbMark);

    // Whether bytes were passed that begin like a mark and are none.
    bool sawLikeness() const { return m_bLikeness; }

    // Whether a line starts at an offset, and whether an end-of-data mark may: what counts is its first byte,
    // since a writer that puts a line over the mark stores that one last.
    bool isLineStart(size_t uOffset) const;
    bool hasMarkAt(size_t uOffset) const;

    // Takes bytes that were read at offset() as consumed.
    void consume(std::string_view svBytes);

    // Goes to a place. False, and back to the beginning, when it is not there any more: the file does not
    // begin as it did, or another line stands in front of it.
    bool resume(const ZEBUPlace& place);
    std::string_view beginning() const { return m_strBeginning; }

    // Whether its name stands for this very file.
    bool isNamed() const;

    // Goes back to the start of a line.
    void rewind(size_t uOffset);

    // Whether the file begins with a text of at most ZEBU_BEGINNING_MAX bytes, and with what was consumed.
    // One that cannot be read, for want of descriptors for instance, is not known to begin otherwise.
    bool beginsWith(std::string_view svText) const;
    bool isUnchanged() const { return beginsWith(m_strBeginning); }

private:
    int reopen() const;

    mutable ZEBUFd m_fd;
    bool m_bOpen = false;    // though the descriptor may be parked
    bool m_bRegular = false; // and can be
    struct stat m_info = {};
    std::string m_strPath;
    size_t m_uOffset = 0;
    std::string m_strBeginning;
    std::string m_strLast; // the two bytes before offset(), CR LF at offset 0
    bool m_bLikeness = false;
};

// Whether a file holds an end-of-data mark, as those of a shared ring do.
bool ZEBU_HasMark(const std::string& strPath);

#endif
