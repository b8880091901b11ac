// tools/reader/Cursor.h -- where in each source a reader stopped, kept in a file so that the next one goes on
// exactly there.
//
// A ring reuses its files, so a place is more than an offset: the beginning of the file and the line in front
// of the place are recognised again, or the place is gone.
#ifndef ZEBU_TOOLS_READER_CURSOR_H
#define ZEBU_TOOLS_READER_CURSOR_H

#include <map>
#include <stdint.h>
#include <string>
#include <string_view>

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

// The places of any number of sources, each under its name. A name is kept as an absolute path.
class ZEBUCursor
{
public:
    // Takes the places that a file holds; one that does not exist or is empty holds none. Returns what is
    // wrong, or an empty text. A file of any other content is refused: it is not overwritten.
    std::string load(const std::string& strFile);

    // Where to go on in a source; null for one that was never read.
    const ZEBUPlace* find(const std::string& strSource) const;

    // Notes a place; those of sources that are not read now stay as they are.
    void set(const std::string& strSource, const ZEBUPlace& place);

    // Stores what was noted since the last time, whole or not at all: written beside the file and renamed.
    // Only for places whose records are safe. Returns what is wrong, or an empty text.
    std::string save();

private:
    std::string m_strFile;
    std::map<std::string, ZEBUPlace> m_places;
    bool m_bChanged = false;
};

#endif
