// The configuration file, with any content.
#include "config/Conf2Unix.h"
#include "config/ConfUnix.h"
#include "Fuzz.h"

static void fuzz(std::string_view input)
{
    static const FuzzDir dir;
    dir.write("test.cnf", input);
    FUZZ_CHECK(setenv("ZEBU2_TRACECNF_FILE", dir.path("test.cnf").c_str(), 1) == 0);
    const ZEBUConfigInf config;
    FUZZ_CHECK(memchr(config.szMonPath, 0, sizeof config.szMonPath));
    FUZZ_CHECK(memchr(config.szLogFile, 0, sizeof config.szLogFile));
    FUZZ_CHECK(memchr(config.szMMapDir, 0, sizeof config.szMMapDir));
    FUZZ_CHECK(config.szMMapFile[0] == '\0' || config.szMMapFile[0] == '/');

    const ZEBUConfigInf2 notice;
    FUZZ_CHECK(memchr(notice.szMsgString, 0, sizeof notice.szMsgString));
}
