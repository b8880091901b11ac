// The tool's reading of rings, files and the trace area with any content: it ends, and within its memory.
#include <time.h>

#include "Fuzz.h"
#include "tools/reader/Area.h"
#include "tools/reader/Management.h"
#include "tools/reader/Records.h"

// The reader pauses for writers that are about to put a record right. Here there are none.
extern "C" int nanosleep(const timespec*, timespec*)
{
    return 0;
}

static void readAll(std::unique_ptr<ZEBUSource> pSource, bool bForeign)
{
    if (!pSource)
        return;
    ZEBURecords records(std::move(pSource), bForeign);
    ZEBURecord record;
    for (int i = 0; i < 100'000; ++i) {
        if (records.next(&record) != ZEBUNext::Record)
            return;
        FUZZ_CHECK(record.svBytes.size() <= ZEBU_RECORD_MAX);
    }
    abort();
}

static void readArea(const FuzzDir& dir, std::string_view bytes)
{
    dir.write("area", bytes);
    ZEBUArea area;
    if (area.open(dir.path("area"), true) != 0)
        return;
    const ZEBUWarn quiet = [](const std::string&) {};
    readAll(std::make_unique<ZEBUAreaSource>(area, true, false, quiet), true);
}

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize)
{
    static const FuzzDir dir;
    const std::string_view input = fuzzText(pData, uSize);
    const std::string prefix = dir.path("app");
    const ZEBUWarn quiet = [](const std::string&) {};
    int iErrno = 0;
    (void)dir.writeRing(input);
    readAll(ZEBU_OpenSharedRing(prefix, false, quiet, &iErrno), false);
    readAll(ZEBU_OpenSingleRing(prefix, false, quiet), false);
    readAll(ZEBU_OpenPlain(dir.path("app1.log"), false, quiet, &iErrno), false);
    ZEBURingRecord record;
    ZEBU_DeriveRecord(prefix, &record);
    readArea(dir, input);
    return 0;
}
