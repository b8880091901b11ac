// tools/reader/Place.h -- a place in a source that is recognised again.
#ifndef ZEBU_TOOLS_READER_PLACE_H
#define ZEBU_TOOLS_READER_PLACE_H

#include <stddef.h>
#include <stdint.h>

#include <string_view>

// So much of a file's beginning is compared: a file header and the lines behind it, whose counters and times
// are not those of another cycle.
constexpr size_t ZEBU_BEGINNING_MAX = 512;

// So much of a line is recognised: its counter, time, application and process stand in it.
constexpr size_t ZEBU_PLACE_LINE_MAX = 64;

// The place behind a record that was dealt with.
struct ZEBUPlace
{
    unsigned uFile = 0;          // number of the file in its ring, 0 for a source that is one file
    uint64_t uOffset = 0;        // behind the record
    uint32_t uBeginning = 0;     // so many bytes of the file's beginning
    uint64_t uBeginningHash = 0; // have this fingerprint
    uint32_t uRecord = 0;        // length of the record: it begins so far before uOffset,
    uint64_t uRecordHash = 0;    // and the first ZEBU_PLACE_LINE_MAX bytes of it have this fingerprint
    bool bShown = true;          // whether it was shown: what continues it shares that
    bool operator==(const ZEBUPlace&) const = default;
};

uint64_t ZEBU_Fingerprint(std::string_view svBytes);

#endif
