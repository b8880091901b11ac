// tools/reader/Zone.h -- times of lines as other programs want them: RFC 3339, with the offset of the zone.
#ifndef ZEBU_TOOLS_READER_ZONE_H
#define ZEBU_TOOLS_READER_ZONE_H

#include <string>
#include <string_view>

#include "tools/reader/Line.h"

// Lines carry the local time of their writer; which zone that was stands in the header of their file.
class ZEBUZone
{
public:
    // A time with its milliseconds and the offset that a zone had then: 2026-11-22T10:00:00.123+01:00, good
    // until the next call. `svZone`: what TZ was set to; empty, or cut off at the header's width, means this
    // process's own zone. The hour that comes twice when clocks are set back is taken as mktime does. Not for
    // lines without a time.
    std::string_view text(std::string_view svTime, ZEBUTime lTime, std::string_view svZone);

private:
    void look(ZEBUTime lMinute, std::string_view svZone);

    ZEBUTime m_lMinute = -1; // of the last time, and its zone:
    std::string m_strZone;
    std::string m_strText; // as it was handed out, with the offset then
};

#endif
