// The tool's reading of rings, files, lines and the trace area with any content: it ends, and within its
// memory.
#include <time.h>

#include "Fuzz.h"
#include "tools/reader/Area.h"
#include "tools/reader/Line.h"
#include "tools/reader/Management.h"
#include "tools/reader/Records.h"

// The reader pauses for writers that are about to put a record right. Here there are none.
extern "C" int nanosleep(const timespec*, timespec*)
{
    return 0;
}

// Views into a line stay within it.
static void readLine(std::string_view text)
{
    const std::string copy(text); // on the heap: what follows is poisoned
    ZEBULine line;
    const size_t uHeader = ZEBU_FindLineHeader(copy);
    FUZZ_CHECK(uHeader == copy.npos || uHeader + ZEBU_LINE_HEADER <= copy.size());
    (void)ZEBU_HeaderTime(copy);
    if (!ZEBU_ParseLine(copy, &line))
        return;
    ZEBUBody body = ZEBU_ReadBody(line.svBody);
    for (const ZEBUForm eForm : {ZEBUForm::Unknown, ZEBUForm::Plain, ZEBUForm::Id, ZEBUForm::Type}) {
        if (eForm != ZEBUForm::Unknown && !ZEBU_CutBody(line.svBody, eForm, &body))
            continue;
        for (const std::string_view part :
             {line.svTime, line.svApp, line.svTid, line.svBody, body.svId, body.svType, body.svText})
            FUZZ_CHECK(part.empty() || (part.data() >= copy.data() &&
                                        part.data() + part.size() <= copy.data() + copy.size()));
    }
}

static void readAll(std::unique_ptr<ZEBUSource> pSource, bool bForeign)
{
    if (!pSource)
        return;
    ZEBURecords records(std::move(pSource), bForeign);
    ZEBURecord record;
    for (int i = 0; records.next(&record) == ZEBUNext::Record; ++i)
        FUZZ_CHECK(i < 100'000 && record.svBytes.size() <= ZEBU_RECORD_MAX);
}

static void fuzz(std::string_view input)
{
    static const FuzzDir dir;
    const std::string prefix = dir.path("app");
    const ZEBUWarn quiet = [](const std::string&) {};
    int iErrno = 0;
    readLine(input);
    (void)dir.writeRing(input);
    readAll(ZEBU_OpenSharedRing(prefix, false, quiet, &iErrno, nullptr), false);
    readAll(ZEBU_OpenSingleRing(prefix, false, quiet, nullptr), false);
    readAll(ZEBU_OpenPlain(dir.path("app1.log"), false, quiet, &iErrno, nullptr), false);
    ZEBURingRecord record;
    ZEBU_DeriveRecord(prefix, &record);
    dir.write("area", input);
    ZEBUArea area;
    if (area.open(dir.path("area"), true) == 0)
        readAll(std::make_unique<ZEBUAreaSource>(area, true, false, quiet), true);
}
