// example_spdlog.cpp -- spdlog into a ring of trace files. usage: example_spdlog PREFIX
#include <spdlog/spdlog.h>

#include <cstdio>

#include "ZEBULib2_spdlog.hpp"

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s PREFIX\n", argv[0]);
        return 2;
    }
    const tagZEBU_LOGFILE_SPEC ring = {1 << 20, 4, argv[1]};
    if (ZEBU2_Initialize(&ring, "spdlog") == -1)
        return 1;
    ZEBU2_SetLogLevel(ZEBU2_LEVEL_MAX); // spdlog decides

    spdlog::logger net("net", std::make_shared<zebu2::spdlog_sink_mt>());
    net.warn("no answer from {} after {} s", "192.0.2.7", 2.5);
    net.debug("below the level of the logger");
    net.flush();
    return ZEBU2_Finalize();
}
