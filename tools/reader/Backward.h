// tools/reader/Backward.h -- finds the last records of a source from its end, so that a large ring need not
// be read from its beginning.
#ifndef ZEBU_TOOLS_READER_BACKWARD_H
#define ZEBU_TOOLS_READER_BACKWARD_H

#include <functional>
#include <optional>

#include "tools/reader/Records.h"

// Whether a record counts; what was decided for the one before it comes with it.
using ZEBUCounts = std::function<bool(const ZEBURecord&, bool)>;

struct ZEBULast
{
    bool bFromPlace = false; // else there are not more of them: the whole source
    ZEBUPlace place;         // recognised like one of a cursor, since the files may change meanwhile
    size_t uCount = 0;       // how many there are from there on, perhaps more than asked for
};

// Finds where the last `uCount` records that count begin, or a little before. Nothing when the source cannot
// be read backwards.
std::optional<ZEBULast> ZEBU_FindLast(const ZEBUSource& source, size_t uCount, const ZEBUCounts& counts);

#endif
