// mmap/AreaHeader.h -- the layout of the trace area: the header of the file and the rules of its ring.
//
// A leaf: facts alone, for whoever appends to an area and whoever reads it.
#ifndef ZEBU_MMAP_AREAHEADER_H
#define ZEBU_MMAP_AREAHEADER_H

#include <stddef.h>
#include <stdint.h>

// The data of the ring follow it. Shared with other processes: read and written through the __atomic
// builtins only, each field once, and never trusted. All in the byte order of the host.
struct tagZEBU_AREA_HEADER
{
    uint32_t uMagic;       // ZEBU_AREA_MAGIC
    uint32_t uReserved;    // 0
    uint32_t uDataSize;    // of the ring: the size of the file without this header
    uint32_t uReadOffset;  // up to here the consumer has read; it alone moves it
    uint32_t uWriteOffset; // where the next line goes
    uint32_t uGuard;       // 0, or stands for the append that is going on
};
static_assert(sizeof(tagZEBU_AREA_HEADER) == 24);
static_assert(offsetof(tagZEBU_AREA_HEADER, uDataSize) == 8);
static_assert(offsetof(tagZEBU_AREA_HEADER, uReadOffset) == 12);
static_assert(offsetof(tagZEBU_AREA_HEADER, uWriteOffset) == 16);
static_assert(offsetof(tagZEBU_AREA_HEADER, uGuard) == 20);

constexpr uint32_t ZEBU_AREA_MAGIC = 0x5542455A; // "ZEBU"

// A file up to this size is begun anew at every open.
constexpr uint32_t ZEBU_AREA_FRESH_MAX = 4096;

// Bounds of the rate limit; the lowest is 0 for both.
constexpr unsigned int ZEBU_INTERVAL_SEC_MAX = 86400;
constexpr unsigned int ZEBU_MSG_NUM_MAX = 1000000;

// The geometry and offsets of a ring as they were read from a header. Both offsets run from 0 to the size
// itself: a line that ends exactly with the data leaves the write offset there. Equal offsets: empty.
struct tagZEBU_AREA_RING
{
    uint32_t uSize;
    uint32_t uRead;
    uint32_t uWrite;

    // Bytes that are free. A line is stored when it is shorter: at least one byte stays free, so that a full
    // ring does not look empty.
    uint64_t free() const
    {
        return uRead > uWrite ? uint64_t{uRead} - uWrite : uint64_t{uRead} + uSize - uWrite;
    }

    // Where the next line goes after one of `uLength` bytes.
    uint32_t next(uint32_t uLength) const
    {
        const uint32_t uToEnd = uSize - uWrite;
        return uLength <= uToEnd ? uWrite + uLength : uLength - uToEnd;
    }
};

#endif
