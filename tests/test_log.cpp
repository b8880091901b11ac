// The printf-style puts of ZEBULib2_log.h. Examples and the tests of headers compile them in other languages.
#define ZEBU2_LOG_COMPILED ZEBU2_LEVEL_DEBUG
#include "support/Sandbox.h"
#include "ZEBULib2_log.h"

using Logf = Sandbox;

TEST_F(Logf, PutsWhatPassesAndEvaluatesNothingElse)
{
    ZEBU2_HINSTANCE hInstance = nullptr;
    ASSERT_EQ(ZEBU2_Initialize(ring(), "app"), 0);
    ASSERT_EQ(ZEBU2_CreateInstance(&hInstance, ring(65536, 1, "other"), "other"), 0);
    ZEBU2_SetLogLevel(ZEBU2_LEVEL_DEBUG);
    const std::string long5000(5000, 'x'), id = "ID                   ";
    EXPECT_EQ(ZEBU2_LOGF(0, "%s", long5000.c_str()) | ZEBU2_LOGF_ID(0, "ID", "x"), 0);
    const int iLine = __LINE__ + 1;
    EXPECT_EQ(ZEBU2_LOGF_AT(600, "%d", 1), 0);
    EXPECT_EQ(ZEBU2_INSTANCE_LOGF(hInstance, 0, "%d", 1) | ZEBU2_INSTANCE_LOGF_ID(hInstance, 0, "ID", "y"),
              0);
    int iEvaluated = 0;
    for (int i = 0; i < 7; ++i) {
        ZEBU2_LOGF_EVERY(3, 1, "every %d", i);
        ZEBU2_LOGF_ONCE(1, "once %d", i);
        const int iLevel = 601; // above the level; the next also above what is compiled
        EXPECT_EQ(ZEBU2_LOGF(iLevel, "%d", ++iEvaluated) | ZEBU2_LOGF(ZEBU2_LEVEL_TRACE, "%d", ++iEvaluated),
                  0);
        EXPECT_EQ(ZEBU2_INSTANCE_LOGF_AT(hInstance, 1, "%d", ++iEvaluated), 0);
    }
    EXPECT_EQ(iEvaluated, 0);
    const wchar_t notInThisLocale[] = {0x110000, 0};
    EXPECT_EQ(ZEBU2_LOGF(0, "%ls", notInThisLocale), -1);
    EXPECT_EQ(lastError(), ZEBU_FUNC_PUT_LINE << 24 | ZEBU_EPOS_PARAM);
    EXPECT_EQ(ZEBU2_LOGF(ZEBU2_LEVEL_MAX + 1 + iEvaluated, "%d", 1), -1);
    EXPECT_EQ(bodies(lines(1)),
              (Lines{std::string(4117, 'x'), id + " x", "test_log.cpp:" + std::to_string(iLine) + ": 1",
                     "every 0", "once 0", "every 3", "every 6", "%ls"}));
    EXPECT_EQ(bodies(traceLines(readFile(path("other1.log")))), (Lines{"1", id + " y"}));
}

TEST(LogLevels, HaveNamesAndNumbers)
{
    EXPECT_EQ(ZEBU2_LevelByName(nullptr, 7), 7);
    const std::pair<const char*, int> cases[] = {
        {"fatal", 0},   {"Warning", 200}, {"TRACE", 800}, {"all", 1000}, {"off", -1}, {"-1", -1},
        {"1000", 1000}, {"1001", 7},      {"-2", 7},      {"12x", 7},    {"", 7}};
    for (const auto& [pszName, iLevel] : cases) {
        (void)setenv("ZEBU_TEST_LEVEL", pszName, 1);
        ZEBU2_SetLogLevelFromEnv("ZEBU_TEST_LEVEL", 7);
        EXPECT_EQ(ZEBU2_GetLogLevel(), iLevel) << pszName;
    }
}
