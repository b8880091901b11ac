// The verbs that look after files: stat, put, backup, clean, config, explain.
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include "support/Tool.h"

namespace {
class ToolFiles : public ToolTest
{
protected:
    nlohmann::json stat(const Words& words) const
    {
        Words all = {"stat", "-o", "json"};
        all.insert(all.end(), words.begin(), words.end());
        return nlohmann::json::parse(zebu2(all).out, nullptr, false);
    }
    // Whether --check complains, and with what word in a warning.
    void expectWarning(const std::string& word) const
    {
        EXPECT_EQ(zebu2({"stat", "--check", prefix()}).status, word.empty() ? 0 : 1) << word;
        const std::string warnings = stat({prefix()})["warnings"].dump();
        EXPECT_NE(warnings.find(word), std::string::npos) << warnings;
    }
    void writeRing() const
    {
        writeShared(1, fileHeader() + plainLines(1, 3));
        writeShared(2, plainLines(4, 5));
        writeRecord(2, static_cast<unsigned>(plainLines(4, 5).size()), 2);
        for (const std::string& file : {traceFile(1), traceFile(2), managementFile()})
            ASSERT_EQ(chmod(file.c_str(), 0640), 0);
    }
};
} // namespace

TEST_F(ToolFiles, StatDescribesASharedRing)
{
    writeRing();
    const std::string file = R"({"path":")";
    EXPECT_EQ(
        zebu2({"stat", "-o", "json", prefix()}).out,
        R"({"kind":"shared ring","name":")" + prefix() + R"(","management_file":")" + managementFile() +
            R"(","management_mode":"0640","file_size":4096,"file_count":2,"current_file":")" + traceFile(2) +
            R"(","write_offset":158,"fill_percent":3,"options":0,"lock_pid":null,"lines":5,)" +
            R"("oldest":"2026-11-22T09:00:00.000","newest":"2026-11-22T10:00:05.000","files":[)" + file +
            traceFile(1) + R"(","size":4096,"live":)" +
            std::to_string((fileHeader() + plainLines(1, 3)).size()) +
            R"(,"mode":"0640","lines":3,"oldest":"2026-11-22T09:00:00.000","newest":"2026-11-22T10:00:03.000"},)" +
            file + traceFile(2) + R"(","size":4096,"live":158,"mode":"0640","lines":2,)" +
            R"("oldest":"2026-11-22T10:00:04.000","newest":"2026-11-22T10:00:05.000"}],"warnings":[]})" +
            "\n");
    const std::string text = zebu2({"stat", prefix()}).out;
    EXPECT_NE(text.find("fill_percent     3\n"), std::string::npos) << text;
}

TEST_F(ToolFiles, StatWarns)
{
    writeRing();
    expectWarning("");
    ASSERT_EQ(chmod(traceFile(1).c_str(), 0646), 0);
    expectWarning("writable by everybody");
    writeRing();
    ASSERT_EQ(truncate(traceFile(1).c_str(), 4000), 0);
    expectWarning("shorter");
    writeRing();
    writeRecord(2, 100, 2);
    expectWarning("replaced or damaged");
    writeRecord(3, 0, 2);
    expectWarning("no valid record");
    writeRing();
    ASSERT_EQ(unlink(traceFile(2).c_str()), 0);
    expectWarning("missing");
}

TEST_F(ToolFiles, StatNamesWhoHoldsALockOrTheArea)
{
    ASSERT_EQ(ZEBU2_Initialize(ring(), "app"), 0);
    EXPECT_EQ(stat({prefix()})["lock_pid"], getpid());
    EXPECT_EQ(stat({prefix()})["current_file"], traceFile(1));
    EXPECT_EQ(stat({"--area"})["drained"], false);
    EXPECT_EQ(stat({"--area"})["unread"], 0);
    {
        RunningTool drain({"drain", "-f", "--interval", "1"});
        ASSERT_EQ(ZEBU2_PutLine(0, "x"), 0);
        (void)drain.readUntil("x\r\n");
        EXPECT_EQ(stat({"--area=" + areaFile()})["drained"], true);
    }
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_EQ(stat({prefix()})["lock_pid"], nullptr);
    writeArea(10000, 0, 5000, "");
    EXPECT_EQ(stat({"--area"})["warnings"].dump().find("full"), std::string::npos);
    setAreaField(16, 8900);
    EXPECT_NE(stat({"--area"})["warnings"].dump().find("full"), std::string::npos);
}

TEST_F(ToolFiles, PutWritesWhatWasAskedFor)
{
    const Words ring = {"put", "--ring", prefix(), "--size", "4096", "--files", "2"};
    const auto put = [&](Words words, const std::string& input = "") {
        words.insert(words.begin(), ring.begin(), ring.end());
        return zebu2(words, input).status;
    };
    EXPECT_EQ(put({"--app", "tester", "--id", "ID", "--type", "WARN", "typed"}), 0);
    EXPECT_EQ(put({"-"}, "one\r\ntwo\nthree"), 0);
    EXPECT_EQ(bodies(lines(1)), (Lines{"ID               WARN typed", "one", "two", "three"}));
    EXPECT_EQ(lines(1)[0].substr(33, 6), "tester");
    EXPECT_EQ(areaLines().size(), 4u);
    EXPECT_EQ(zebu2({"put", "--area-only", "alone"}).status, 0);
    EXPECT_EQ(body(areaLines().back()), "alone");
    EXPECT_EQ(lines(1).size(), 4u);

    ASSERT_EQ(ZEBU2_Initialize(this->ring(4096, 2), "app"), 0);
    const ToolResult locked = zebu2({"put", "--ring", prefix(), "--size", "4096", "--files", "2", "x"});
    EXPECT_EQ(locked.status, 2);
    EXPECT_NE(locked.err.find("locked by another process"), std::string::npos);
    for (const Words& words : {Words{"put", "x"},
                               {"put", "--ring", prefix(), "x"},
                               {"put", "--area-only", "--shared", "x"},
                               {"put", "--area-only", "--level", "1001", "x"},
                               {"put", "--area-only", "--type", "T", "x"}})
        EXPECT_EQ(zebu2(words).status, 2) << ::testing::PrintToString(words);
}

TEST_F(ToolFiles, BackupRefusesAFileOfTheRing)
{
    writeRing();
    const std::string before = readFile(traceFile(1));
    EXPECT_EQ(link(traceFile(1).c_str(), path("alias").c_str()), 0);
    for (const std::string& destination : {traceFile(1), path("alias"), managementFile(), path("none/x")})
        EXPECT_EQ(zebu2({"backup", prefix(), destination}).status, 2) << destination;
    EXPECT_EQ(readFile(traceFile(1)), before);
    EXPECT_EQ(zebu2({"backup", path("nothing"), path("copy")}).status, 2);
    EXPECT_FALSE(exists(path("copy")));
}

TEST_F(ToolFiles, CleanRemovesAsTheLibraryDoes)
{
    const std::string pattern = path("app*.log");
    const auto prepare = [&] {
        for (int n = 1; n <= 3; ++n) {
            writeFile(traceFile(n), "x");
            age(traceFile(n), 86400 * (4 - n));
        }
    };
    const auto left = [&] {
        return std::to_string(exists(traceFile(1))) + std::to_string(exists(traceFile(2))) +
               std::to_string(exists(traceFile(3)));
    };
    const struct
    {
        Words rule;
        const char* left;
    } cases[] = {{{"--keep", "1"}, "001"},         {{"--keep", "0"}, "000"},
                 {{"--keep", "9"}, "111"},         {{"--older-than", "2d"}, "001"},
                 {{"--older-than", "70h"}, "011"}, {{"--older-than", "1w"}, "111"}};
    for (const auto& test : cases) {
        prepare();
        Words words = {"clean", "--dry-run", pattern};
        words.insert(words.end(), test.rule.begin(), test.rule.end());
        const std::string announced = zebu2(words).out;
        EXPECT_EQ(left(), "111");
        words.erase(words.begin() + 1);
        EXPECT_EQ(zebu2(words).out, announced);
        EXPECT_EQ(left(), test.left) << ::testing::PrintToString(words);
        for (int n = 1; n <= 3; ++n)
            EXPECT_EQ(announced.find("remove  " + traceFile(n)) != std::string::npos, !exists(traceFile(n)))
                << n;
    }
    prepare();
    writeRecord(1, 0);
    EXPECT_EQ(zebu2({"clean", "--keep", "0", pattern}).status, 2);
    EXPECT_EQ(left(), "111");
    EXPECT_EQ(zebu2({"clean", "--keep", "0", "--force", pattern}).status, 0);
    EXPECT_EQ(left(), "000");
    for (const Words& words : {Words{"clean", pattern},
                               {"clean", "--keep", "1", "--older-than", "1d", pattern},
                               {"clean", "--older-than", "soon", pattern},
                               {"clean", "--keep", "-1", pattern}})
        EXPECT_EQ(zebu2(words).status, 2) << ::testing::PrintToString(words);
}

TEST_F(ToolFiles, ConfigTellsWhereEachValueComesFrom)
{
    writeFile(configFile(),
              "# comment\n\nLogFile = /srv/log/x\nLogSize=1024\n LogFNum = 3\nMapSize = 4096\n"
              "MapSize = 8192\nWatchDog = many\nRelease\nOther = 1\nMsgString=Now %f\nMsgString\n");
    const ToolResult result = zebu2({"config", "--check"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(
        result.out,
        "file        " + configFile() +
            " (ZEBU2_TRACECNF_FILE names it)\n"
            "Release     1  (default)\nMonPath     (empty)  (default)\nLogFile     /srv/log/x  (line 3)\n"
            "LogSize     262144  (default)\nLogFNum     4  (default)\nWatchDog    10  (default)\n"
            "MapSize     8192  (line 7)\nIntervalSec 0  (default)\nMaxMsgNum   0  (default)\n"
            "MsgString   Now %f  (line 11)\ntrace area  /srv/log/mmap/zebu2mmap.mm\n"
            "line 4      has no effect: there is no blank before \"=\"\n"
            "line 5      has no effect: it begins with a blank\n"
            "line 6      has no effect: line 7 sets MapSize again\n"
            "line 8      has no effect: the value is no number\n"
            "line 9      has no effect: there is no \"=\"\n"
            "line 10     has no effect: it begins with no key\n"
            "line 12     has no effect: there is no \"=\", and no later MsgString is read\n");
    writeFile(path("other"), "LogFile = /o/x\n");
    EXPECT_NE(zebu2({"config", "--check", path("other")}).out.find("/o/mmap/zebu2mmap.mm"),
              std::string::npos);
    EXPECT_EQ(zebu2({"config", "--check", path("other")}).status, 0);
    writeFile(path("other"), "MapSize = 1\n");
    EXPECT_NE(zebu2({"config", path("other")}).out.find("has no absolute LogFile"), std::string::npos);
    setenv("ZEBU2_TRACECNF_FILE", "relative", 1);
    EXPECT_NE(zebu2({"config"}).out.find("is no absolute path"), std::string::npos);
}

TEST_F(ToolFiles, ExplainNamesFunctionFailureAndCode)
{
    const ToolResult result = zebu2({"explain", "0x2700001D", "17"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(
        result.out,
        "function  39  ZEBU2_InitializeM\n"
        "failure   29  ZEBU_EPOS_MISMATCH: the files of a shared ring do not match its management file\n"
        "code      17  File exists\n");
    EXPECT_EQ(zebu2({"explain", "134217739"}).out.substr(0, 27), "function  8  ZEBU2_PutLine\n");
    EXPECT_EQ(zebu2({"explain", "0x03000006"}).status, 1);
    EXPECT_EQ(zebu2({"explain", "0x1234567890"}).status, 2);
}
