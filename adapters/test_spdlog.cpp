// The spdlog sink: levels, ids, patterns, failures.
#include <spdlog/spdlog.h>

#include "support/Sandbox.h"
#include "ZEBULib2_spdlog.hpp"

using Spdlog = Sandbox;

TEST_F(Spdlog, PutsWhatPassesAndTellsWhatFails)
{
    ZEBU2_HINSTANCE instance = nullptr;
    ASSERT_EQ(ZEBU2_Initialize(ring(), "app") |
                  ZEBU2_CreateInstance(&instance, ring(65536, 1, "other"), "other"),
              0);
    ZEBU2_SetLogLevel(ZEBU2_LEVEL_INFO);
    spdlog::logger net("net", std::make_shared<zebu2::spdlog_sink_mt>());
    spdlog::logger bare("", std::make_shared<zebu2::spdlog_sink_st>(instance));
    std::string failure;
    net.set_error_handler([&](const std::string& text) { failure = text; });
    net.set_level(spdlog::level::trace);
    net.critical("{} of {}", 1, "two");
    net.info("info");
    net.debug("above the level of the library");
    bare.critical(std::string(5000, 'x'));
    bare.error("above the level of the instance");
    net.set_pattern("<%l> %v");
    net.error("patterned");
    net.flush();
    const std::string id = "net" + std::string(19, ' ');
    EXPECT_EQ(bodies(lines(1)), (Lines{id + "1 of two", id + "info", id + "<error> patterned"}));
    EXPECT_EQ(bodies(traceLines(readFile(path("other1.log")))), Lines{std::string(4117, 'x')});
    EXPECT_EQ(failure, "");
    stop();
    net.critical("closed");
    EXPECT_NE(failure.find("put failed with 11 of function 9"), std::string::npos) << failure;
}
