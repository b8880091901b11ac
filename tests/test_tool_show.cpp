// What show prints, of which lines, and with which exit status.
#include <nlohmann/json.hpp>
#include <time.h>

#include "support/Tool.h"

namespace {
using Show = ToolTest;

// The counters of the lines in an output.
std::string counters(const std::string& text)
{
    std::string found;
    for (const std::string& line : splitLines(text))
        found += (found.empty() ? "" : " ") + line.substr(0, 4);
    return found;
}

std::string jsonLine(const std::string& head, const std::string& body, const std::string& form,
                     const std::string& file)
{
    return "{\"kind\":\"line\"," + head + ",\"body\":\"" + body + "\"," + form + ",\"file\":\"" + file +
           "\"}\n";
}
} // namespace

TEST_F(Show, PrintsEveryKindOfRecordAsJson)
{
    const std::string file = path("plain");
    const std::string masked = "****/**/** **:**:**.***";
    writeFile(file,
              "begins here\r\n" + startHeader() +
                  line(7, "10:00:00.123", "MSG-1                 identified") +
                  line(8, "10:00:01.000", "MSG-1            INFO typed") +
                  line(9, masked, "just a text\nsecond\r\nthird") +
                  line(10, "----/--/-- --:--:--.---", "ABCDEFGHIJKLMNOPQRSTU which?", "", "FFFFFFFF", ""));
    const std::string nulls =
        "\"counter\":null,\"time\":null,\"app\":null,\"pid\":null,\"tid\":null,\"body\":\"";
    const std::string noFields =
        "\",\"form\":null,\"id\":null,\"type\":null,\"text\":null,\"file\":\"" + file + "\"}\n";
    std::string header = startHeader();
    header.resize(header.size() - 2);
    const auto head = [](const std::string& counter, const std::string& time) {
        return "\"counter\":" + counter + ",\"time\":" + time +
               ",\"app\":\"app\",\"pid\":6699,\"tid\":\"0000ABCD\"";
    };
    const std::string expected =
        "{\"kind\":\"text\"," + nulls + "begins here" + noFields + "{\"kind\":\"header\"," + nulls +
        nlohmann::json(header).dump().substr(1, nlohmann::json(header).dump().size() - 2) + noFields +
        jsonLine(head("7", "\"2026-11-22T10:00:00.123\""), "MSG-1                 identified",
                 R"("form":"id","id":"MSG-1","type":null,"text":"identified")", file) +
        jsonLine(head("8", "\"2026-11-22T10:00:01.000\""), "MSG-1            INFO typed",
                 R"("form":"type","id":"MSG-1","type":"INFO","text":"typed")", file) +
        jsonLine(head("9", "null"), R"(just a text\nsecond\r\nthird)",
                 R"("form":"plain","id":null,"type":null,"text":"just a text\nsecond\r\nthird")", file) +
        jsonLine(R"("counter":10,"time":null,"app":"","pid":4294967295,"tid":"")",
                 "ABCDEFGHIJKLMNOPQRSTU which?", R"("form":null,"id":null,"type":null,"text":null)", file);
    EXPECT_EQ(zebu2({"show", "-o", "json", "--headers", file}).out, expected);
    const auto forced =
        nlohmann::json::parse(zebu2({"show", "-o", "json", "--form", "id", "-n", "1", file}).out);
    EXPECT_EQ(forced["id"], "ABCDEFGHIJKLMNOPQRSTU");
    EXPECT_EQ(forced["text"], "which?");
}

TEST_F(Show, KeepsEveryByteButWhatATerminalOrJsonCannotTake)
{
    const std::string file = path("plain");
    const std::string body("\x1B[2J\tcaf\xC3\xA9 \xC2\x9B"
                           "1m \xFF\x00 end",
                           22);
    const std::string text = line(1, "10:00:00.000", body);
    writeFile(file, fileHeader() + text + "no end");
    EXPECT_EQ(zebu2({"show", file}).out, text + "no end\n");
    EXPECT_EQ(zebu2({"show", "-o", "raw", file}).out, text + "no end");
    EXPECT_EQ(zebu2({"show", "--headers", file}).out, readFile(file) + "\n");
    EXPECT_EQ(zebu2({"show", "--color", "always", file}).out,
              "\x1B[2m0001 \x1B[0m\x1B[32m2026/11/22 10:00:00.000     \x1B[0m\x1B[36mapp              \x1B[0m"
              "\x1B[2m00001A2B 0000ABCD \x1B[0m\\x1B[2J\\tcaf\xC3\xA9 \\xC2\\x9B1m \\xFF\\x00 end\nno end\n");
    const auto json =
        nlohmann::json::parse(splitLines(zebu2({"show", "-o", "json", "-n", "1", file}).out + "\r\n")[0]);
    EXPECT_EQ(json["body"], std::string("\x1B[2J\tcaf\xC3\xA9 \xC2\x9B"
                                        "1m \xEF\xBF\xBD\x00 end\r\nno end",
                                        32));
}

TEST_F(Show, PicksLinesByTheirFields)
{
    const std::string file = path("plain");
    writeFile(file,
              fileHeader() + line(1, "10:00:00.000", "MSG-1                 first error", "one") +
                  line(2, "10:00:30.000", "OTHER            WARN second Error", "two", "00000010") +
                  line(3, "****/**/** **:**:**.***", "third\r\nwith a tail", "one", "00000010", "main") +
                  line(4, "11:00:00.500", "LONGIDENTIFIER16 WARN fourth", "three") +
                  line(5, "11:00:01.000", "plain and fifth error", "three"));
    const struct
    {
        Words words;
        const char* expected;
    } cases[] = {
        {{}, "0001 0002 0003 with 0004 0005"},
        {{"-S", "2026-11-22 10:00:30"}, "0002 0003 with 0004 0005"},
        {{"-S", "2026/11/22 10:00:30.001"}, "0004 0005"},
        {{"-U", "2026-11-22T11:00:00.500", "-S", "2026-11-22 11:00"}, "0004"},
        {{"--app", "one"}, "0001 0003 with"},
        {{"--app", "one", "--app", "two", "--pid", "16"}, "0002 0003 with"},
        {{"--pid", "0x1a2b"}, "0001 0004 0005"},
        {{"--tid", "main"}, "0003 with"},
        {{"--id", "MSG*"}, "0001"},
        {{"--id", "LONG*"}, "0004"},
        {{"--type", "WARN"}, "0002 0004"},
        {{"--form", "id", "--id", "OTHER *"}, "0002"},
        {{"--grep", "error$"}, "0001 0005"},
        {{"--grep", "(second|fifth) ERROR", "-i"}, "0002 0005"},
        {{"--grep", "^with a"}, "0003 with"},
        {{"--headers", "--app", "two"}, "****      0002"},
        {{"-n", "2"}, "0004 0005"},
    };
    for (const auto& test : cases) {
        Words words = test.words;
        words.insert(words.begin(), "show");
        words.push_back(file);
        EXPECT_EQ(counters(zebu2(words).out), test.expected) << ::testing::PrintToString(words);
    }
}

TEST_F(Show, UnderstandsTimesRelativeToNow)
{
    const auto at = [](long secondsAgo) {
        const time_t then = time(nullptr) - secondsAgo;
        tm local;
        char text[32];
        (void)strftime(text, sizeof text, "%Y/%m/%d %H:%M:%S.000", localtime_r(&then, &local));
        return std::string(text);
    };
    writeFile(path("plain"), line(1, at(200000), "x") + line(2, at(7000), "x") + line(3, at(60), "x"));
    const std::string epoch = "@" + std::to_string(time(nullptr) - 7200);
    const struct
    {
        const char* option;
        std::string when;
        const char* expected;
    } cases[] = {{"-S", "-90min", "0003"},       {"-S", "-2h", "0002 0003"},  {"-S", "-3d", "0001 0002 0003"},
                 {"-S", epoch, "0002 0003"},     {"-U", "yesterday", "0001"}, {"-U", "now", "0001 0002 0003"},
                 {"-S", "-1w", "0001 0002 0003"}};
    for (const auto& test : cases)
        EXPECT_EQ(counters(zebu2({"show", test.option, test.when, path("plain")}).out), test.expected)
            << test.when;
    EXPECT_EQ(zebu2({"show", "-S", "today", "-U", "00:00", path("plain")}).status, 1);
    for (const char* when : {"", "noon", "25:00", "2026-13-01", "2026-11-22 10", "-5", "@x", "10:00x"})
        EXPECT_EQ(zebu2({"show", std::string("--since=") + when, path("plain")}).status, 2) << when;
}

TEST_F(Show, TellsByItsStatusWhatWasFound)
{
    writeShared(1, line(1, "10:00:00.000", "x"));
    writeRecord(1, 77, 1);
    writeFile(path("empty"), "");
    const struct
    {
        Words words;
        int status;
    } cases[] = {
        {{"show", prefix()}, 0},
        {{"show", "--grep", "y", prefix()}, 1},
        {{"show", path("empty")}, 1},
        {{"show", "-S", "2026-11-22 10:00", "--grep", "y", prefix()}, 1},
        {{"show", "-S", "2026-11-22 09:59", "--grep", "y", prefix()}, 3},
        {{"show", "-S", "2026-11-22 09:59", prefix()}, 0},
        {{"show", path("none")}, 2},
        {{"show", path("none"), prefix()}, 2},
        {{"show", path("")}, 2},
        {{"show"}, 2},
        {{"show", "--grep", "(", prefix()}, 2},
        {{"show", "--pid", "12x", prefix()}, 2},
        {{"show", "-o", "xml", prefix()}, 2},
        {{"show", "--count", "app", "-f", prefix()}, 2},
        {{}, 2},
        {{"nothing"}, 2},
        {{"--help"}, 0},
    };
    for (const auto& test : cases)
        EXPECT_EQ(zebu2(test.words).status, test.status) << ::testing::PrintToString(test.words);
}

TEST_F(Show, ReadsASharedRingOldestFirstAndNothingBehindAMark)
{
    const std::string old = plainLines(90, 99);
    writeShared(1, fileHeader() + plainLines(7, 8), old);
    writeShared(2, fileHeader() + plainLines(1, 3), old);
    writeShared(3, fileHeader() + plainLines(4, 6), std::string("\0\0", 2) + old);
    writeRecord(1, static_cast<unsigned>((fileHeader() + plainLines(7, 8)).size()));
    EXPECT_EQ(zebu2({"show", prefix()}).out, plainLines(1, 8));
    // The record is damaged: its place is worked out from the files.
    for (int n = 1; n <= 3; ++n)
        age(traceFile(n), n == 1 ? 0 : 60 - n);
    for (const long offset : {0L, 8L, 12L, 20L}) {
        writeRecord(1, 4000);
        std::string record = readFile(managementFile());
        writeFile(managementFile(), record.replace(static_cast<size_t>(offset), 4, 4, '\0'));
        const ToolResult result = zebu2({"show", prefix()});
        EXPECT_EQ(result.out, plainLines(1, 8)) << offset;
        EXPECT_NE(result.err.find("no valid record"), std::string::npos);
    }
    // The record is valid but its offset is wrong, and a file is missing.
    for (const unsigned offset : {300u, 4000u, 70000u}) {
        writeRecord(1, offset);
        EXPECT_EQ(unlink(traceFile(2).c_str()), offset == 300 ? 0 : -1);
        EXPECT_EQ(zebu2({"show", prefix()}).out, plainLines(4, 8)) << offset;
    }
}

TEST_F(Show, ReadsWhatTheLibraryWrote)
{
    for (const int option : {0, ZEBU2_OPT_NOFILL, ZEBU2_OPT_NOFILL | ZEBU2_OPT_CURRENT_ONLY, -1}) {
        const int child = inChild([&] {
            const tagZEBU_LOGFILE_SPEC* spec = ring(4096, 3);
            CHECK((option < 0 ? ZEBU2_Initialize(spec, "app") : ZEBU2_InitializeM(spec, "app", option)) == 0);
            for (int i = 0; i < 150; ++i)
                CHECK(ZEBU2_PutLine(0, std::to_string(i).c_str()) == 0);
            CHECK(ZEBU2_TraceBackup(path("backup").c_str()) == 0);
            CHECK(ZEBU2_Finalize() == 0);
        });
        ASSERT_EQ(child, 0);
        const std::string text = zebu2({"show", prefix()}).out;
        EXPECT_EQ(splitLines(text), traceLines(readFile(path("backup")))) << option;
        EXPECT_EQ(body(splitLines(text).back()), "149");
        EXPECT_EQ(zebu2({"backup", prefix(), path("copy")}).status, 0);
        EXPECT_EQ(readFile(path("copy")), readFile(path("backup")));
        for (int n = 1; n <= 3; ++n)
            (void)unlink(traceFile(n).c_str());
        (void)unlink(managementFile().c_str());
    }
}

TEST_F(Show, MergesSourcesByTime)
{
    writeFile(path("a"),
              line(1, "10:00:00.000", "x") + line(3, "10:00:02.000", "x") + line(5, "10:00:04.000", "x"));
    writeFile(path("b"), line(2, "10:00:01.000", "x\r\ntail") + line(2, "****/**/** **:**:**.***", "x") +
                             line(4, "10:00:03.000", "x"));
    EXPECT_EQ(counters(zebu2({"show", path("a"), path("b")}).out), "0001 0002 tail 0002 0003 0004 0005");
    EXPECT_EQ(counters(zebu2({"show", path("a"), "-"}, readFile(path("b"))).out),
              "0001 0002 tail 0002 0003 0004 0005");
}

TEST_F(Show, CountsLinesByAKey)
{
    writeFile(path("plain"), fileHeader() + line(1, "10:00:00.000", "A                     x", "one") +
                                 line(2, "10:00:59.000", "A                     y", "two") +
                                 line(3, "10:01:00.000", "B                INFO z", "two") +
                                 line(4, "****/**/** **:**:**.***", "text", "two"));
    const auto count = [&](const char* key) { return zebu2({"show", "--count", key, path("plain")}).out; };
    EXPECT_EQ(count("app"), "       3  two\n       1  one\n");
    EXPECT_EQ(count("id"), "       2  A\n       1  -\n       1  B\n");
    EXPECT_EQ(count("minute"), "       2  2026/11/22 10:00\n       1  -\n       1  2026/11/22 10:01\n");
    EXPECT_EQ(zebu2({"show", "--count", "pid", "-o", "json", path("plain")}).out,
              "{\"pid\":\"6699\",\"count\":4}\n");
}

// The fast way and the careful one must agree wherever the blocks they read happen to end.
TEST_F(Show, AgreesWithItselfOverBlocksAndRecordsOfAnySize)
{
    std::string bytes;
    for (int i = 0; bytes.size() < 1500000; ++i)
        bytes += (i % 3 == 0 ? startHeader() : "") +
                 line(i % 10000, "10:00:00.000", std::string(static_cast<size_t>(i * 7 % 4000), 'x'));
    bytes += line(1, "11:00:00.000", std::string(300000, 'y')) + std::string(200000, 'z') + "\r\n" +
             line(2, "11:00:01.000", "end");
    writeFile(path("big"), bytes);
    const std::string fast = zebu2({"show", path("big")}).out;
    EXPECT_EQ(splitLines(fast), traceLines(bytes));
    EXPECT_EQ(fast, zebu2({"show", "-o", "raw", "--until", "2030-01-01", path("big")}).out);
    EXPECT_EQ(zebu2({"show", "-o", "raw", "--grep", "^y", path("big")}).out.size(), 68 + 300002 + 200002u);
}
