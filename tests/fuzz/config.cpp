// The configuration file, with any content, and the notice that comes of it.
#include <string.h>

#include "config/Conf2Unix.h"
#include "config/ConfUnix.h"
#include "Fuzz.h"
#include "logfile/LogSwapMsg.h"

static void fuzz(std::string_view input)
{
    static const FuzzDir dir;
    dir.write("test.cnf", input);
    FUZZ_CHECK(setenv("ZEBU2_TRACECNF_FILE", dir.path("test.cnf").c_str(), 1) == 0);
    static ZEBUConfigInf config; // large
    config.~ZEBUConfigInf();
    new (&config) ZEBUConfigInf;
    FUZZ_CHECK(memchr(config.szMonPath, 0, sizeof config.szMonPath));
    FUZZ_CHECK(memchr(config.szLogFile, 0, sizeof config.szLogFile));
    FUZZ_CHECK(memchr(config.szMMapDir, 0, sizeof config.szMMapDir));
    FUZZ_CHECK(config.szMMapFile[0] == '\0' || config.szMMapFile[0] == '/');

    const ZEBUConfigInf2 notice;
    FUZZ_CHECK(memchr(notice.szMsgString, 0, sizeof notice.szMsgString));
    const auto pMsg = std::make_unique<tagZEBU_SWAP_MSG>(); // what follows is poisoned
    const std::string name = "app \x1B%s", file(input.size() % 300, 'f');
    const int iLength = ZEBU_BuildSwapMsg(pMsg.get(), notice.szMsgString, name.c_str(), 7, file.c_str());
    FUZZ_CHECK(iLength >= 0 && iLength <= ZEBU_SWAP_MSG_MAX);
    FUZZ_CHECK(strlen(pMsg->szText) == static_cast<size_t>(iLength));
    FUZZ_CHECK(strlen(pMsg->szShown) <= static_cast<size_t>(iLength));
}
