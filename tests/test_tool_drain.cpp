// drain, the consumer of the trace area.
#include "support/AreaConsumer.h"
#include "support/Tool.h"

namespace {
using Drain = ToolTest;
}

TEST_F(Drain, TakesWhatIsUnreadWhereverItLies)
{
    const std::string lines = plainLines(1, 3);
    const size_t uSize = lines.size();
    const std::tuple<size_t, size_t, size_t> cases[] = {
        {1000, 0, uSize},
        {1000, 1000 - uSize, 1000},      // up to the end of the data
        {1000, 900, 900 + uSize - 1000}, // over it
        {1000, 1000, uSize}};            // a read offset that stands there
    for (const auto& [uDataSize, uRead, uWrite] : cases) {
        writeArea(uDataSize, uRead, uWrite, lines);
        EXPECT_EQ(zebu2({"drain", "-o", "raw", "--peek"}).out, lines) << uRead;
        expectStatus(0, {"drain --peek"});
        EXPECT_EQ(areaHeader().uReadOffset, uRead);
        EXPECT_EQ(zebu2({"drain", "-o", "raw"}).out, lines) << uRead;
        EXPECT_EQ(areaHeader().uReadOffset, uWrite);
        EXPECT_EQ(zebu2({"drain"}).status, 1);
    }
}

TEST_F(Drain, FindsItsWayThroughForeignBytes)
{
    const std::string raw = line(2, "10:00:01.000", std::string("a\0b\r\nc", 6));
    const std::string unread = "tail of a line\r\n" + plainLines(1, 1) + "foreign" + raw + "garbage";
    writeArea(4000, 3900, unread.size() - 100, unread);
    EXPECT_EQ(zebu2({"drain", "--peek", "-o", "raw"}).out, unread);
    const std::string json = zebu2({"drain", "--app", "app", "-o", "json"}).out;
    EXPECT_NE(json.find("\"a\\u0000b\\r\\nc\\r\\ngarbage\""), std::string::npos) << json;
    EXPECT_EQ(areaHeader().uReadOffset, areaHeader().uWriteOffset);
    writeArea(4000, 0, plainLines(1, 3).size(), plainLines(1, 3));
    EXPECT_NE(zebu2({"drain", "--app", "none"}).err.find("3 lines that did not match"), std::string::npos);
}

TEST_F(Drain, RefusesADamagedHeader)
{
    for (const auto& [lOffset, uValue] :
         {std::pair(0, 1u), {8, 0}, {8, 1001}, {12, 1001}, {16, 0xFFFFFFFF}}) {
        writeArea(1000, 0, 100, plainLines(1, 1));
        setAreaField(lOffset, uValue);
        const std::string before = readFile(areaFile());
        EXPECT_EQ(zebu2({"drain"}).status, 2) << lOffset;
        EXPECT_EQ(readFile(areaFile()), before);
    }
    expectStatus(1, {"stat --area --check"});
    writeFile(areaFile(), "ZEBU");
    expectStatus(2, {"drain"});
    EXPECT_EQ(unlink(areaFile().c_str()), 0);
    expectStatus(2, {"drain"});
}

TEST_F(Drain, RepeatsLinesButLosesNoneWhenItsOutputFails)
{
    const std::string lines = plainLines(1, 200);
    writeArea(20000, 0, lines.size(), lines);
    for (const bool bKill : {true, false}) {
        RunningTool tool({"drain"}, 4096); // it can print only the beginning
        EXPECT_NE(tool.readUntil("message 3\n").find("message 3\n"), std::string::npos);
        bKill ? tool.signal(SIGKILL) : tool.closeOutput();
        EXPECT_EQ(tool.wait(), bKill ? 128 + SIGKILL : 0);
        EXPECT_EQ(areaHeader().uReadOffset, 0u);
    }
    for (const char* pszOutput : {"/dev/full", "&-"})
        EXPECT_EQ(system((std::string(zebu2Path) + " drain >" + pszOutput).c_str()), 2 << 8) << pszOutput;
    EXPECT_EQ(zebu2({"drain", "-o", "raw"}).out, lines);
}

// Another application writes meanwhile, so much that the area goes round many times.
TEST_F(Drain, FollowsAppendersAsTheOnlyConsumer)
{
    const int iCount = 2000;
    startArea();
    putLine("first");
    RunningTool tool({"drain", "-f", "-o", "raw", "--interval", "1"});
    EXPECT_NE(tool.readUntil("first\r\n").find("first"), std::string::npos);
    expectStatus(2, {"drain"});
    const pid_t appender = startChild([&] {
        CHECK(ZEBU2_Finalize() == 0 && ZEBU2_Initialize(nullptr, "other") == 1);
        const AreaConsumer area(areaFile());
        for (int i = 0; i < iCount; ++i)
            area.put("line", i);
        CHECK(ZEBU2_PutLine(0, "the end") == 0);
    });
    const Lines lines = bodies(splitLines(tool.readUntil("the end\r\n")));
    EXPECT_EQ(waitForChild(appender), 0);
    ASSERT_EQ(lines.size(), iCount + 2u);
    for (int i = 0; i < iCount; ++i)
        ASSERT_EQ(areaSender(lines[static_cast<size_t>(i) + 1]), "line " + std::to_string(i));
    tool.signal(SIGTERM);
    EXPECT_EQ(tool.wait(), 0);
}
