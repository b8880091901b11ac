// tools/reader/Source.h -- the bytes of a ring or file, oldest first, with nothing behind an end-of-data
// mark.
//
// A source reads what other processes are writing. It takes no lock, writes nothing and never waits; with
// `bFollow` it goes on when more was written.
#ifndef ZEBU_TOOLS_READER_SOURCE_H
#define ZEBU_TOOLS_READER_SOURCE_H

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/reader/Cursor.h"
#include "tools/reader/TraceFile.h"

enum class ZEBURead {
    Bytes,   // at least one byte was read
    FileEnd, // the bytes that follow come from another file
    Gap,     // as FileEnd, and the last bytes were cut off: their file was reused under the reader
    Idle,    // nothing new now (only when following)
    End      // nothing more will come
};

enum class ZEBUSourceKind { SharedRing, SingleRing, Plain };

constexpr int ZEBU_RESTARTS_MAX = 100;
constexpr int ZEBU_LOOKS_MAX = 16; // one after another, at what writers change meanwhile
constexpr int ZEBU_LOOK_PAUSE = 2; // milliseconds, where they need time for it

// A file of a source.
struct ZEBUSegment
{
    unsigned uFile;
    std::string strPath;
    uint64_t uEnd; // of its data,
    bool bMark;    // unless they end at a mark
};

// Receives what the user should know, as a sentence without a line end.
using ZEBUWarn = std::function<void(const std::string&)>;

class ZEBUSource
{
public:
    explicit ZEBUSource(const ZEBUWarn& warnUser) : m_warn(warnUser) {}
    virtual ~ZEBUSource() = default;

    // Reads the next bytes, at most `uSize`; `*puRead` is their number with Bytes, else 0.
    virtual ZEBURead read(char* pBuffer, size_t uSize, size_t* puRead) = 0;

    // The path that the last bytes came from.
    virtual const std::string& file() const = 0;

    // The same as an open file, and its number in the ring (0 outside of one), for places to go on at. Null
    // for what has no places.
    virtual const ZEBUTraceFile* present(unsigned* puNumber) const
    {
        *puNumber = 0;
        return nullptr;
    }

    // The files that it reads, oldest first, as they were when it was opened; none for what can be read only
    // once.
    virtual std::vector<ZEBUSegment> segments() const { return {}; }

    // Gives back the descriptors, until it is read again.
    virtual void park() {}

    // Whether the first bytes are those behind the place that the source was opened with.
    bool isResumed() const { return m_bResumed; }

    // After a Gap: of how many files, at least, lines may be missing. 0 when none are.
    unsigned filesLost() const { return m_uFilesLost; }

    // Whether a file header has the time at which it was written, and not that at which its log was opened.
    virtual bool hasTimelyHeaders() const { return false; }

    // Whether something could not be read that is there. The user was told.
    bool hasFailed() const { return m_bFailed; }

protected:
    void warn(const std::string& strText) const { m_warn(strText); }
    void fail(const std::string& strText)
    {
        if (strText != m_strFailure) // not again at every look of a reader that follows
            warn(strText);
        m_strFailure = strText;
        m_bFailed = true;
    }
    ZEBURead gap(unsigned uFilesLost)
    {
        m_uFilesLost = uFilesLost;
        return ZEBURead::Gap;
    }
    void setResumed() { m_bResumed = true; }

    // Counts that a reader which does not follow began anew. False when it will not get to an end like this.
    bool mayRestart(const std::string& strName)
    {
        if (++m_iRestarts <= ZEBU_RESTARTS_MAX)
            return true;
        fail(strName + " comes round faster than it can be read");
        return false;
    }

private:
    const ZEBUWarn m_warn;
    unsigned m_uFilesLost = 0;
    bool m_bResumed = false;
    bool m_bFailed = false;
    std::string m_strFailure;
    int m_iRestarts = 0;
};

// What a name stands for: a shared ring when its management file exists, a ring of one process when a file
// with a number does, else a plain file ("-" is the standard input).
ZEBUSourceKind ZEBU_SourceKind(const std::string& strName);

// The file that an errno of opening a source is about.
std::string ZEBU_SourceFile(const std::string& strName);

// Opens a source. Null, with `*piErrno`, when it cannot be read at all. `pFrom`: the place to go on at, or
// null for the oldest line. When the place is gone the first read is a Gap, and what is still there follows.
std::unique_ptr<ZEBUSource> ZEBU_OpenSource(const std::string& strName, bool bFollow, const ZEBUWarn& warn,
                                            int* piErrno, const ZEBUPlace* pFrom = nullptr);

// The three kinds; for ZEBU_OpenSource.
std::unique_ptr<ZEBUSource> ZEBU_OpenSharedRing(const std::string& strPrefix, bool bFollow,
                                                const ZEBUWarn& warn, int* piErrno, const ZEBUPlace* pFrom);
std::unique_ptr<ZEBUSource> ZEBU_OpenSingleRing(const std::string& strPrefix, bool bFollow,
                                                const ZEBUWarn& warn, const ZEBUPlace* pFrom);
std::unique_ptr<ZEBUSource> ZEBU_OpenPlain(const std::string& strPath, bool bFollow, const ZEBUWarn& warn,
                                           int* piErrno, const ZEBUPlace* pFrom);

// Reads a source to its end. `take` gets what was read and not taken yet, and how the read ended; it returns
// how much it takes, all but the beginning of a line that goes on. What a Gap cut off it does not get.
using ZEBUTake = std::function<size_t(std::string_view svBytes, ZEBURead eRead)>;
void ZEBU_ReadBlocks(ZEBUSource& source, const ZEBUTake& take);
constexpr size_t ZEBU_READ_BLOCK = size_t{256} * 1024; // the most that it gets

#endif
