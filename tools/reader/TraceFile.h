// tools/reader/TraceFile.h -- one file that is read while others may write, reuse or remove it.
#ifndef ZEBU_TOOLS_READER_TRACEFILE_H
#define ZEBU_TOOLS_READER_TRACEFILE_H

#include <string>
#include <string_view>
#include <sys/stat.h>

// The first byte of an end-of-data mark. It is one only at the start of a line: at offset 0 or behind CR LF.
constexpr char ZEBU_MARK = 0x1A;

// So much of a file's beginning is compared: a file header and the lines behind it, whose counters and times
// are not those of another cycle.
constexpr size_t ZEBU_BEGINNING_MAX = 512;

// An open file and the place that was read up to. A file of a ring is reused from its first byte on: the
// beginning that was read is kept and compared, so that a reader notices when its place is gone.
class ZEBUTraceFile
{
public:
    ZEBUTraceFile() = default;
    ~ZEBUTraceFile() { close(); }
    ZEBUTraceFile(const ZEBUTraceFile&) = delete;
    ZEBUTraceFile& operator=(const ZEBUTraceFile&) = delete;

    // Opens a file for reading from its beginning, without waiting for anything. Returns 0 or the errno.
    // Only ordinary files are taken, unless `bAnyKind`: then pipes and devices too.
    int open(const std::string& strPath, bool bAnyKind = false);
    // Takes a descriptor, which may be -1, under a name.
    int adopt(int iFd, const std::string& strName);
    void close();
    bool isOpen() const { return m_iFd != -1; }
    int fd() const { return m_iFd; }
    const std::string& path() const { return m_strPath; }
    size_t offset() const { return m_uOffset; }

    // Whether its name stands for another file that exists; also when no file is open.
    bool isReplaced() const;

    // Reads at an offset, fewer bytes than asked for only at the end of the file. -1 with errno.
    long readAt(size_t uOffset, char* pBuffer, size_t uSize) const;

    // Reads at offset() at most up to the end-of-data mark: 0 there and at the end of the file, or -1.
    long readLive(char* pBuffer, size_t uSize) const;

    // How many bytes of a block that begins at offset() stand before the end-of-data mark.
    size_t liveBytes(std::string_view svBlock) const;

    // Whether a line starts at an offset, and whether an end-of-data mark does.
    bool isLineStart(size_t uOffset) const;
    bool hasMarkAt(size_t uOffset) const;

    // Takes bytes that were read at offset() as consumed.
    void consume(std::string_view svBytes);

    // Goes back to the start of a line.
    void rewind(size_t uOffset);

    // Whether the file begins with a text of at most ZEBU_BEGINNING_MAX bytes, and with what was consumed.
    bool beginsWith(std::string_view svText) const;
    bool isUnchanged() const { return beginsWith(m_strBeginning); }

private:
    int m_iFd = -1;
    std::string m_strPath;
    size_t m_uOffset = 0;
    std::string m_strBeginning;
    std::string m_strLast; // the two bytes before offset(), CR LF at offset 0
};

// The offset of the end-of-data mark, or the size of a file that has none. -1 when it cannot be read.
long ZEBU_FindEndOfData(const std::string& strPath);

#endif
