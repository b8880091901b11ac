// tools/reader/Cursor.h -- where in each source a reader stopped, kept in a file so that the next one goes on
// exactly there.
//
// A ring reuses its files, so a place is more than an offset: the beginning of the file and the line in front
// of the place are recognised again, or the place is gone.
#ifndef ZEBU_TOOLS_READER_CURSOR_H
#define ZEBU_TOOLS_READER_CURSOR_H

#include <map>
#include <string>

#include "frame/Fd.h"
#include "tools/reader/Place.h"

// The places of any number of sources, each under its name. A name is kept as an absolute path.
class ZEBUCursor
{
public:
    // Takes the places that a file holds; one that does not exist or is empty holds none. Returns what is
    // wrong, or an empty text. A file of any other content is refused: it is not overwritten. So is one that
    // another process has loaded: both would store their places.
    std::string load(const std::string& strFile);

    // Where to go on in a source; null for one that was never read.
    const ZEBUPlace* find(const std::string& strSource) const;

    // Notes a place; those of sources that are not read now stay as they are.
    void set(const std::string& strSource, const ZEBUPlace& place);

    // Stores what was noted since the last time, whole or not at all: written beside the file and renamed.
    // Only for places whose records are safe. Returns what is wrong, or an empty text.
    std::string save();

private:
    std::string lock();

    std::string m_strFile;
    ZEBUFd m_lock; // of a file beside it, which is never replaced
    std::map<std::string, ZEBUPlace> m_places;
    bool m_bChanged = false;
};

#endif
