// The verbs that look after files: stat, put, backup, clean, config, explain.
#include <nlohmann/json.hpp>

#include "support/Tool.h"

namespace {
class ToolFiles : public ToolTest
{
protected:
    static nlohmann::json stat(const std::string& what)
    {
        return nlohmann::json::parse(zebu2({"stat", "-o", "json", what}).out, nullptr, false);
    }
    // Two files with five lines.
    void writeSample(mode_t uMode = 0640) const
    {
        writeRing({fileHeader() + plainLines(1, 3), plainLines(4, 5)}, 2);
        for (const std::string& file : {traceFile(1), traceFile(2), managementFile()})
            ASSERT_EQ(chmod(file.c_str(), uMode), 0);
    }
};
} // namespace

TEST_F(ToolFiles, StatDescribesASharedRing)
{
    writeSample();
    EXPECT_EQ(
        zebu2({"stat", "-o", "json", "app"}).out,
        R"({"kind":"shared ring","name":"app","management_file":"./mmap/app.mm","management_mode":"0640",)"
        R"("file_size":4096,"file_count":2,"current_file":"app2.log","write_offset":158,"fill_percent":3,)"
        R"("options":0,"lock_pid":null,"writers":0,"lines":5,"oldest":"2026-11-22T09:00:00.000",)"
        R"("newest":"2026-11-22T10:00:05.000","files":[{"path":"app1.log","size":4096,"live":)" +
            std::to_string((fileHeader() + plainLines(1, 3)).size()) +
            R"(,"mode":"0640","lines":3,"oldest":"2026-11-22T09:00:00.000","newest":"2026-11-22T10:00:03.000"},)"
            R"({"path":"app2.log","size":4096,"live":158,"mode":"0640","lines":2,)"
            R"("oldest":"2026-11-22T10:00:04.000","newest":"2026-11-22T10:00:05.000"}],"warnings":[]})"
            "\n");
    EXPECT_NE(zebu2({"stat", "app"}).out.find("fill_percent     3\n"), std::string::npos);
}

TEST_F(ToolFiles, StatWarns)
{
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[] {}, ""},
        {[&] { CHECK(truncate(traceFile(1).c_str(), 4000) == 0); }, "shorter"},
        {[&] { CHECK(unlink(traceFile(1).c_str()) == 0); }, "app1.log is missing inside the ring"},
        {[&] { writeRecord(2, 100, 2); }, "replaced or damaged"},
        {[&] { writeRecord(3, 0, 2); }, "no valid record"},
        {[&] { CHECK(unlink(traceFile(2).c_str()) == 0); }, "missing"},
        {[&] { CHECK(unlink(traceFile(1).c_str()) == 0 && mkdir(traceFile(1).c_str(), 0700) == 0); },
         "cannot be read"},
        {[&] { CHECK(rmdir(traceFile(1).c_str()) == 0 && unlink(managementFile().c_str()) == 0); },
         "app.mm is missing"},
        {[&] {
             CHECK(unlink(managementFile().c_str()) == 0 && unlink(traceFile(1).c_str()) == 0);
             writeFile(traceFile(2), plainLines(1, 1));
             writeFile(traceFile(4), plainLines(2, 2));
         },
         "app3.log is missing inside the ring"}};
    for (const auto& [damage, pszWords] : cases) {
        writeSample();
        damage();
        EXPECT_EQ(zebu2({"stat", "--check", prefix()}).status, *pszWords ? 1 : 0) << pszWords;
        const std::string warnings = stat(prefix())["warnings"].dump();
        EXPECT_NE(warnings.find(pszWords), std::string::npos) << warnings;
    }
    // What the library's own modes allow is told when it is asked for, once for a ring.
    ASSERT_EQ(unlink(traceFile(4).c_str()), 0);
    writeSample(0666);
    expectStatus(0, {"stat --check " + prefix()});
    expectStatus(1, {"stat --check=modes " + prefix()});
    expectStatus(2, {"stat --check=more " + prefix()});
}

TEST_F(ToolFiles, StatComparesWithLimitsForMonitoring)
{
    writeRing({line(1, "2001/01/01 00:00:00.000", "old"), line(2, "2001/01/01 00:00:01.000", "a \"b\"")}, 2);
    writeFile(path("other1.log"), plainLines(1, 2));
    writeFile(path("empty1.log"), "");
    expectStatus(0, {"stat --max-fill 2 --min-reach 1d app"});
    expectStatus(1, {"stat --max-fill 0 app", "stat --max-age 1d app", "stat --max-age 1d empty",
                     "stat --max-fill 2 --min-reach 3000w ."});
    expectStatus(2, {"stat --max-age old app", "stat app none"});
    expectStatus(0, {"put --shared --ring " + prefix() + " new", "stat --max-age 1h app"});
    const std::string metrics = zebu2({"stat", "-o", "prometheus", "app", "other"}).out;
    EXPECT_NE(metrics.find("# TYPE zebu2_lines gauge\nzebu2_lines{source=\"app\",kind=\"shared ring\"} 3\n"
                           "zebu2_lines{source=\"other\",kind=\"ring of one process\"} 2\n#"),
              std::string::npos)
        << metrics;
}

// app11.log is the first file of the ring app1, not the eleventh of app.
TEST_F(ToolFiles, TellsTheRingsOfADirectoryApart)
{
    writeSample();
    ASSERT_EQ(unlink(managementFile().c_str()), 0);
    writeFile("app11.log", plainLines(6, 7));
    writeFile("app12.log", plainLines(8, 8));
    writeFile("notes.log", "x");
    const auto list = [] {
        std::string rows;
        for (const std::string& row : outLines({"ls", "-o", "json"})) {
            const auto json = nlohmann::json::parse(row);
            rows += json["ring"].dump() + json["files"].dump() + json["kind"].dump() + "\n";
        }
        return rows;
    };
    EXPECT_EQ(list(), "\"./app\"2\"ring of one process\"\n\"./app1\"2\"ring of one process\"\n");
    EXPECT_EQ(zebu2({"show", "--count", "app", "app1"}).out, "       3  app\n");
    EXPECT_EQ(zebu2({"show", "--count", "app", "."}).out, "       8  app\n");
    writeRecord(2, 158, 2);
    EXPECT_EQ(list(), "\"./app\"2\"shared ring\"\n\"./app1\"2\"ring of one process\"\n");
    expectStatus(0, {"ls", "show app1.log mmap"}); // the directory of the management files holds no rings
    expectStatus(1, {"ls mmap"});
    expectStatus(2, {"ls none", "show mmap"});
    writeArea(1000, 0, 0, "");
    EXPECT_NE(zebu2({"show", areaFile()}).err.find("is a trace area: use drain --peek"), std::string::npos);
    EXPECT_NE(zebu2({"stat", "mmap/app.mm"}).err.find("management file of a shared ring"), std::string::npos);
    EXPECT_NE(zebu2({"shwo", "x\x1B"}).err.find("no verb \"shwo\""), std::string::npos);
    EXPECT_EQ(zebu2({"show", "--x\x1B"}).err.find('\x1B'), std::string::npos);
    EXPECT_EQ(zebu2({"--version"}).out.substr(0, 7), "zebu2 2");
}

// Of a damaged record stat tells what the next writer makes of the files.
TEST_F(ToolFiles, StatFindsTheEndOfTheDataAsTheLibraryDoes)
{
    const std::string lines = plainLines(1, 2);
    for (const auto& [live, uOffset] :
         {std::pair(lines, 158), {std::string(1, '\0') + lines, 0}, {"a\r\n\x1A" + lines, 3}}) {
        writeRing({live}, 1);
        writeRecord(0, 0, 1);
        EXPECT_EQ(stat(prefix())["write_offset"], uOffset);
        ASSERT_EQ(ZEBU2_InitializeM(ring(4096, 1), "app", ZEBU2_OPT_NOSTARTLINE | ZEBU2_OPT_NOHEADER), 0);
        stop();
        EXPECT_EQ(stat(prefix())["write_offset"], uOffset);
    }
}

TEST_F(ToolFiles, StatNamesWhoHoldsALockOrTheArea)
{
    ASSERT_EQ(ZEBU2_Initialize(ring(), "app"), 0);
    EXPECT_EQ(stat(prefix())["lock_pid"], getpid());
    EXPECT_EQ(stat("--area")["drained"], false);
    {
        RunningTool drain({"drain", "-f", "--interval", "1"});
        ASSERT_EQ(ZEBU2_PutLine(0, "x"), 0);
        (void)drain.readUntil("x\n");
        EXPECT_EQ(stat("--area=" + areaFile())["drained"], true);
    }
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_EQ(stat(prefix())["lock_pid"], nullptr);
    writeArea(10000, 0, 8900, "");
    EXPECT_NE(stat("--area")["warnings"].dump().find("full"), std::string::npos);
}

TEST_F(ToolFiles, PutWritesWhatWasAskedFor)
{
    const auto put = [&](Words words, const std::string& input = "") {
        words.insert(words.begin(), {"put", "--ring", prefix(), "--size", "4096", "--files", "2"});
        return zebu2(words, input);
    };
    EXPECT_EQ(put({"--app", "tester", "--id", "ID", "--type", "WARN", "typed"}).status, 0);
    EXPECT_EQ(put({"-"}, "one\r\ntwo\nthree").status, 0);
    EXPECT_EQ(bodies(lines(1)), (Lines{"ID               WARN typed", "one", "two", "three"}));
    EXPECT_EQ(lines(1)[0].substr(33, 6), "tester");
    expectStatus(0, {"put --area-only alone"});
    EXPECT_EQ(body(areaLines().back()) + body(lines(1).back()), "alonethree");

    const int iLock = lockAsAnother(traceFile(1));
    EXPECT_NE(put({"x"}).err.find("locked by another process"), std::string::npos);
    (void)close(iLock);
    // A ring of the other kind is left alone; a shared one that exists knows its size, and is known by its
    // marks.
    const std::string before = readFile(traceFile(1));
    EXPECT_NE(put({"--shared", "x"}).err.find("leave --shared out"), std::string::npos);
    EXPECT_EQ(readFile(traceFile(1)), before);
    writeSample();
    expectStatus(0, {"put --ring " + prefix() + " --shared more"});
    EXPECT_NE(zebu2({"show", "-n", "1", prefix()}).out.find(" more\n"), std::string::npos);
    for (const bool bLost : {false, true}) {
        EXPECT_NE(put({"x"}).err.find("give --shared"), std::string::npos) << bLost;
        (void)unlink(managementFile().c_str());
    }
    EXPECT_NE(put({"--shared", "again"}).err.find("was made anew"), std::string::npos);
    EXPECT_NE(zebu2({"show", "-n", "1", prefix()}).out.find(" again\n"), std::string::npos);
    expectStatus(2, {"put x", "put --ring " + prefix() + " x", "put --area-only --shared x",
                     "put --area-only --level 1001 x", "put --area-only --type T x",
                     "put --shared --ring " + path("new") + " x"});
}

// A copy takes its name when it is complete, and nobody can read it who could not read all files.
TEST_F(ToolFiles, BackupLeavesTheOldCopyUntilTheNewOneIsComplete)
{
    const std::string copy = path("copy"), whole = fileHeader() + plainLines(1, 5);
    writeSample();
    ASSERT_EQ(chmod(traceFile(2).c_str(), 0604), 0);
    expectStatus(0, {"backup " + prefix() + " " + copy});
    EXPECT_EQ(readFile(copy), whole);
    EXPECT_EQ(fileMode(copy), 0600);
    EXPECT_EQ(zebu2({"backup", prefix(), "-"}).out, whole);
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    const pid_t reader = startChild([&] { CHECK(readFile(path("fifo")) == whole); });
    expectStatus(0, {"backup " + prefix() + " " + path("fifo")});
    EXPECT_EQ(waitForChild(reader), 0);

    const std::string limited = "ulimit -f 1; trap '' XFSZ; " + std::string(zebu2Path) + " backup ";
    EXPECT_EQ(system((limited + prefix() + " " + copy).c_str()), 2 << 8);
    EXPECT_EQ(readFile(copy), whole);
    if (geteuid() != 0)
        GTEST_SKIP() << "links of strangers need root";
    ASSERT_EQ(symlink(copy.c_str(), path("link").c_str()) | lchown(path("link").c_str(), 65534, 65534), 0);
    expectStatus(2, {"backup " + prefix() + " " + path("link")});
    ASSERT_EQ(rename(path("link").c_str(), traceFile(1).c_str()), 0);
    expectStatus(2, {"backup " + prefix() + " " + path("other"), "backup " + prefix() + " " + copy});
    EXPECT_EQ(readFile(copy), whole);
    for (const auto& entry : std::filesystem::directory_iterator(path("")))
        EXPECT_EQ(entry.path().string().find("copy."), std::string::npos);
}

TEST_F(ToolFiles, BackupRefusesAFileOfTheRing)
{
    writeSample();
    EXPECT_EQ(link("app1.log", "alias"), 0);
    expectStatus(2, {"backup app app1.log", "backup app alias", "backup app mmap/app.mm", "backup app none/x",
                     "backup nothing copy"});
    EXPECT_EQ(readFile(traceFile(1)).find(plainLines(1, 3) + mark()), fileHeader().size());
    EXPECT_FALSE(exists(path("copy")));
}

TEST_F(ToolFiles, CleanRemovesWhatItAnnounces)
{
    const std::string pattern = path("app*.log");
    const auto clean = [&](Words words, long lApart = 86400) {
        words.insert(words.begin(), {"clean", "--dry-run", pattern});
        for (int n = 1; n <= 3; ++n) {
            writeFile(traceFile(n), "x");
            age(traceFile(n), lApart * (4 - n));
        }
        const std::string announced = zebu2(words).out;
        words.erase(words.begin() + 1);
        EXPECT_EQ(zebu2(words).out, announced);
        std::string left;
        for (int n = 1; n <= 3; ++n) {
            left += exists(traceFile(n)) ? "1" : "0";
            EXPECT_EQ(announced.find("remove  " + traceFile(n)) == std::string::npos, exists(traceFile(n)));
        }
        return left;
    };
    EXPECT_EQ(clean({"--keep", "1"}), "001");
    EXPECT_EQ(clean({"--keep", "9"}), "111");
    EXPECT_EQ(clean({"--keep", "3"}, 0), "111");
    EXPECT_EQ(clean({"--keep", "1"}, 0).find("11"), std::string::npos); // which, the library says
    EXPECT_EQ(clean({"--older-than", "70h"}), "011");
    expectStatus(2, {"clean " + pattern, "clean --keep 1 --older-than 1d " + pattern,
                     "clean --older-than soon " + pattern});
    EXPECT_EQ(zebu2({"clean", "--older-than", "", pattern}).status, 2);
    expectStatus(1, {"clean --keep 0 " + path("none*")});
    writeRecord(1, 0);
    expectStatus(2, {"clean --keep 0 " + pattern, "clean --keep 0 " + path("mmap/app.m*")});
    EXPECT_TRUE(exists(traceFile(2)));
    EXPECT_EQ(clean({"--keep", "0", "--force"}), "000");
    // What cannot be examined ends the scan.
    ASSERT_EQ(symlink("nowhere", path("dangling").c_str()), 0);
    EXPECT_EQ(clean({"--keep", "0", "--force"}), "111");
    expectStatus(2, {"clean --keep 0 --force " + pattern, "clean --dry-run --keep 0 --force " + pattern});
}

TEST_F(ToolFiles, ConfigTellsWhereEachValueComesFrom)
{
    writeFile(configFile(),
              "#" + std::string(9000, 'x') +
                  "\n\nLogFile = /none/log/x y\nLogSize=1024\n LogFNum = 3\nMapSize = 4096\nMapSize = 24\n"
                  "WatchDog = many\nRelease\nOther = 1\nMsgString=Now %f\nMsgString\nMonPath = \"/mon\"\n"
                  "IntervalSec = 86401s\nMaxMsgNum = 4294967297\n");
    EXPECT_EQ(
        zebu2({"config"}).out,
        "file        " + configFile() +
            " (ZEBU2_TRACECNF_FILE names it)\n"
            "Release     1  (default)\nMonPath     \"/mon\"  (line 13)\nLogFile     /none/log/x  (line 3)\n"
            "LogSize     262144  (default)\nLogFNum     4  (default)\nWatchDog    10  (default)\n"
            "MapSize     24  (line 7)\nIntervalSec 86401  (line 14)\nMaxMsgNum   1  (line 15)\n"
            "MsgString   Now %f  (line 11)\ntrace area  /none/log/mmap/zebu2mmap.mm\n"
            "line 3      LogFile ends where a text ends, at its first blank: \"y\" is left out\n"
            "line 3      there is no directory /none/log for the trace area\n"
            "line 4      has no effect: there is no blank before \"=\"\n"
            "line 5      has no effect: it begins with a blank\n"
            "line 6      has no effect: line 7 sets MapSize again\n"
            "line 7      no trace area fits into this MapSize: none is opened\n"
            "line 8      has no effect: the value is no number\n"
            "line 9      has no effect: there is no \"=\"\n"
            "line 10     has no effect: it begins with no key\n"
            "line 12     has no effect: there is no \"=\", and no later MsgString is read\n"
            "line 13     the quotes are part of MonPath\n"
            "line 14     the value goes on behind its number: 86401 is in force\n"
            "line 14     IntervalSec is out of range and changes no limit\n"
            "line 15     the value does not fit: 1 is in force\n");
    expectStatus(1, {"config --check"});
    writeFile(configFile(), "\xEF\xBB\xBFLogFile = " + path("x") + "\nLogFile = " + path("x") + "\n");
    EXPECT_NE(zebu2({"config"}).out.find("line 1      has no effect: it begins with a byte order mark"),
              std::string::npos);
    configure();
    expectStatus(0, {"config --check"});
    setenv("ZEBU2_TRACECNF_FILE", "relative", 1);
    EXPECT_NE(zebu2({"config"}).out.find("is no absolute path"), std::string::npos);
    setenv("ZEBU2_TRACECNF_FILE", (configFile() + "/x").c_str(), 1);
    EXPECT_NE(zebu2({"config"}).out.find("cannot be examined (Not a directory)"), std::string::npos);
}

TEST_F(ToolFiles, ExplainNamesFunctionFailureAndCode)
{
    EXPECT_EQ(
        zebu2({"explain", "0x2700001D", "17"}).out,
        "function  39  ZEBU2_InitializeM\n"
        "failure   29  ZEBU_EPOS_MISMATCH: the files of a shared ring do not match its management file\n"
        "code      17  File exists\n");
    expectStatus(1, {"explain 0x03000006"});
    expectStatus(2, {"explain 0x1234567890"});
}
