// tools/reader/Area.h -- the trace area as its consumer sees it.
//
// Appenders store lines behind the write offset and then move it; the consumer reads up to it and then
// moves the read offset, which is the only thing that this code ever writes. The header is shared with all
// processes of the host and is not believed: every offset is checked against the size of the mapping.
#ifndef ZEBU_TOOLS_READER_AREA_H
#define ZEBU_TOOLS_READER_AREA_H

#include <algorithm>
#include <stdint.h>
#include <string>

#include "frame/Fd.h"
#include "mmap/AreaHeader.h"
#include "tools/reader/Source.h"

struct ZEBUAreaOffsets
{
    uint32_t uDataSize = 0;
    uint32_t uRead = 0;
    uint32_t uWrite = 0;

    // Bytes from one place of the ring to another, 0 to the data size.
    uint64_t distance(uint32_t uFrom, uint32_t uTo) const
    {
        return uTo >= uFrom ? uTo - uFrom : uint64_t{uTo} + uDataSize - uFrom;
    }
    // The place so many bytes behind another, at most the data size; the end of the ring is not its
    // beginning.
    uint32_t behind(uint32_t uFrom, uint64_t uBytes) const
    {
        const uint64_t uEnd = uFrom + uBytes;
        return static_cast<uint32_t>(uEnd > uDataSize ? uEnd - uDataSize : uEnd);
    }
    // Bytes that wait for the consumer, and the longest line that would still be stored.
    uint64_t unread() const { return distance(uRead, uWrite); }
    uint64_t room() const
    {
        return std::max<uint64_t>(tagZEBU_AREA_RING{uDataSize, uRead, uWrite}.free(), 1) - 1;
    }
};

class ZEBUArea
{
public:
    ZEBUArea() = default;
    ~ZEBUArea() { close(); }
    ZEBUArea(const ZEBUArea&) = delete;
    ZEBUArea& operator=(const ZEBUArea&) = delete;

    // Maps an area, for reading alone unless `bConsume`. A symbolic link is refused. Returns 0 or the errno;
    // EINVAL for what cannot be an area.
    int open(const std::string& strPath, bool bConsume);
    void close();
    const std::string& path() const { return m_strPath; }

    // Makes this process the one that consumes. False when another process is it.
    bool lock();
    // Whether any process is. For a moment this looks to others as if one was.
    bool isLocked() const;

    // Loads the offsets; false when the header is damaged.
    bool load(ZEBUAreaOffsets* pOffsets) const;

    // Copies `uBytes` bytes of the ring from `uFrom` on; both at most the data size.
    void copy(const ZEBUAreaOffsets& offsets, uint32_t uFrom, char* pBuffer, size_t uBytes) const;

    // Gives everything before `uOffset` back to the appenders. Only the consumer, after its output is safe.
    void release(uint32_t uOffset);

    // Whether the path stands for another file by now, or the file has another size.
    bool isReplaced() const;

private:
    std::string m_strPath;
    ZEBUFd m_fd;
    tagZEBU_AREA_HEADER* m_pHeader = nullptr;
    size_t m_uLength = 0;
};

// The bytes of an area as a source. What was read is a batch, and given back as a whole.
class ZEBUAreaSource final : public ZEBUSource
{
public:
    // `bConsume`: the area was opened for it and is locked. `bFollow`: there may be more than one batch.
    ZEBUAreaSource(ZEBUArea& area, bool bConsume, bool bFollow, const ZEBUWarn& warn);

    // Reads the unread bytes up to the write offset as it was at the first read, then FileEnd; then Idle, or
    // End, until finishBatch.
    ZEBURead read(char* pBuffer, size_t uSize, size_t* puRead) override;
    const std::string& file() const override { return m_area.path(); }

    // The output is safe: gives the batch back to the appenders, if this is the consumer. False when there
    // was none.
    bool finishBatch();

    // The offset so many bytes behind the beginning of the batch, for a consumer that gives back less than
    // all.
    uint32_t placeInBatch(uint64_t uBytes) const { return m_offsets.behind(m_uBatch, uBytes); }

    // Whether the header was found damaged.
    bool isDamaged() const { return m_bDamaged; }

private:
    bool startBatch();
    bool isUnread(const ZEBUAreaOffsets& offsets) const;

    ZEBUArea& m_area;
    const bool m_bConsume;
    const bool m_bFollow;
    enum { NoBatch, Reading, Read } m_eBatch = NoBatch;
    bool m_bDamaged = false;
    bool m_bStarted = false;
    ZEBUAreaOffsets m_offsets; // as the batch began
    uint32_t m_uBatch = 0;     // where the batch begins
    uint32_t m_uNext = 0;      // the place that was read up to
};

#endif
