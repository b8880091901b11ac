// What show prints, of which lines, and with which exit status.
#include <nlohmann/json.hpp>
#include <time.h>

#include "support/Tool.h"
#include "tools/reader/Json.h"

namespace {
class Show : public ToolTest
{
protected:
    static std::string show(Words words, const std::string& input = "")
    {
        words.insert(words.begin(), "show");
        return zebu2(words, input).out;
    }
    // The first words of the lines that show prints: their counters.
    static std::string counters(Words words, const std::string& input = "")
    {
        words.insert(words.begin(), {"-o", "raw"});
        std::string found;
        for (const std::string& line : splitLines(show(words, input)))
            found += (found.empty() ? "" : " ") + line.substr(0, 4);
        return found;
    }
    // What a command line prints.
    std::string shell(const std::string& command) const
    {
        EXPECT_NE(system(("(" + command + ") > " + path("shell")).c_str()), -1);
        return readFile(path("shell"));
    }
    const std::string m_tool = std::string(zebu2Path) + " show ";
};

const char* const cs_pszMasked = "****/**/** **:**:**.***";
} // namespace

TEST_F(Show, PrintsEveryKindOfRecordAsJson)
{
    writeFile("f", fileHeader() + "begins here\r\n" + line(7, "10:00:00.123", "ID-1                  a") +
                       line(8, "10:00:01.000", "ID               INFO b") +
                       line(9, cs_pszMasked, "text\nmore\r\nend") +
                       line(10, "----/--/-- --:--:--.---", "ABCDEFGHIJKLMNOPQRSTU x?", "", "FFFFFFFF", ""));
    std::string keys, rows;
    for (const std::string& object : outLines({"show", "-o", "json", "f"})) {
        keys.clear();
        const auto record = nlohmann::ordered_json::parse(object);
        for (const auto& [key, value] : record.items()) {
            keys += key + " ";
            rows += " " + value.dump();
        }
        rows += "\n";
    }
    EXPECT_EQ(keys, "kind time host source app pid tid counter form id type text file ");
    EXPECT_EQ(rows, R"( "text" null "host" "f" null null null null null null null "begins here" "f"
 "line" "2026-11-22T10:00:00.123+00:00" "host" "f" "app" 6699 "0000ABCD" 7 "id" "ID-1" null "a" "f"
 "line" "2026-11-22T10:00:01.000+00:00" "host" "f" "app" 6699 "0000ABCD" 8 "type" "ID" "INFO" "b" "f"
 "line" null "host" "f" "app" 6699 "0000ABCD" 9 "plain" null null "text\nmore\r\nend" "f"
 "line" null "host" "f" "" 4294967295 "" 10 null null null "ABCDEFGHIJKLMNOPQRSTU x?" "f"
)");
    const auto forced = nlohmann::json::parse(show({"-o", "json", "--form", "id", "-n", "1", "f"}));
    EXPECT_EQ(forced["id"].dump() + forced["text"].dump(), R"("ABCDEFGHIJKLMNOPQRSTU""x?")");
    writeFile("header", startHeader());
    const auto header = nlohmann::json::parse(show({"-o", "json", "--headers", "header"}));
    EXPECT_EQ(header["text"].get<std::string>() + "\r\n", startHeader());
    // The zone is the writer's; what cannot be one, or was cut off, leaves the reader's.
    CHECK(setenv("TZ", "ABC-5", 1) == 0);
    for (auto [zone, month, shift] :
         {std::tuple<std::string, std::string, std::string>("TZ=Europe/Berlin", "07", "+02:00"),
          {"TZ=Europe/Berlin", "11", "+01:00"},
          {"TZ=XYZ3:30", "11", "-03:30"},
          {"TZ=", "11", "+00:00"},
          {"Unknown", "11", "+05:00"},
          {"TZ=/dev/stdin", "11", "+05:00"}}) {
        zone.resize(32, ' ');
        writeFile("zone", fileHeader().replace(83, 32, zone) +
                              line(1, "2026/" + month + "/22 23:00:00.000", "x") +
                              line(2, "2026/11/22 23:00:00.500", "x"));
        EXPECT_EQ(nlohmann::json::parse(outLines({"show", "-o", "json", "zone"})[0])["time"],
                  "2026-" + month + "-22T23:00:00.000" + shift)
            << zone;
    }
}

TEST_F(Show, WritesHostileBytesAsAnyOtherJsonWriter)
{
    // Bytes at which something begins, ends or is forbidden, in sequences of four (each of three is among
    // them) and between plain ones.
    const std::string edges(
        "\0\x1F \"\\az\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xED\xEE\xEF\xF0\xF1\xF4\xF5"
        "\xFF\b\f\n\r\t",
        33);
    const size_t uCount = edges.size();
    for (size_t i = 0; i < uCount * uCount * uCount * uCount; i += 29) {
        ZEBUBuffer json;
        std::string text = {edges[i % uCount], edges[i / uCount % uCount],
                            edges[i / uCount / uCount % uCount], edges[i / uCount / uCount / uCount]};
        if (i % 7 == 0)
            text = std::string(i % 11, 'p') + text + std::string(i % 13, 'q') + text.substr(0, i % 4);
        ZEBU_AppendJsonText(&json, text);
        const auto eReplace = nlohmann::json::error_handler_t::replace;
        ASSERT_EQ(json.view(), nlohmann::json(text).dump(-1, ' ', false, eReplace))
            << ::testing::PrintToString(text);
    }
}

TEST_F(Show, KeepsEveryByteButWhatATerminalOrJsonCannotTake)
{
    const std::string body("\x1B[2J\tcaf\xC3\xA9 \xC2\x9B"
                           "1m \xFF\x00 end",
                           22);
    const std::string text = line(1, "10:00:00.000", body);
    writeFile("plain", fileHeader() + text + "no end");
    EXPECT_EQ(show({"plain"}), asText(text) + "no end\n");
    EXPECT_EQ(show({"-o", "raw", "plain"}), text + "no end");
    EXPECT_EQ(show({"--headers", "plain"}), asText(readFile("plain")) + "\n");
    EXPECT_EQ(show({"--color", "always", "plain"}),
              "\x1B[2m0001 \x1B[0m\x1B[32m2026/11/22 10:00:00.000     \x1B[0m\x1B[36mapp              \x1B[0m"
              "\x1B[2m00001A2B 0000ABCD \x1B[0m\\x1B[2J\\tcaf\xC3\xA9 \\xC2\\x9B1m \\xFF\\x00 end\nno end\n");
}

TEST_F(Show, PicksLinesByTheirFields)
{
    writeFile("plain", fileHeader() + line(1, "10:00:00.000", "MSG-1                 first error", "one") +
                           line(2, "10:00:30.000", "OTHER 2          WARN second Error", "two", "00000010") +
                           line(3, cs_pszMasked, "third\r\nwith a tail", "one", "00000010", "main") +
                           line(4, "11:00:00.500", "LONGIDENTIFIER16 WARN fourth", "three") +
                           line(5, "11:00:01.000", "plain and fifth error", "three"));
    const std::pair<Words, const char*> cases[] = {
        {{"-S", "2026-11-22 10:00:30"}, "0002 0003 with 0004 0005"},
        {{"-S", "2026/11/22 10:00:30.001"}, "0004 0005"},
        {{"-U", "2026-11-22T11:00:00.500", "-S", "2026-11-22 11:00"}, "0004"},
        {{"--app", "one", "--app", "two", "--pid", "16"}, "0002 0003 with"},
        {{"--pid", "0x1a2b"}, "0001 0004 0005"},
        {{"--pid", "00000010"}, "0002 0003 with"},
        {{"--tid", "main"}, "0003 with"},
        {{"--id", "MSG*"}, "0001"},
        {{"--id", "LONG*"}, "0004"},
        {{"--type", "WARN"}, "0002 0004"},
        {{"--id", "OTHER ?"}, "0002"},
        {{"--form", "id", "--id", "OTHER *"}, "0002"},
        {{"--grep", "error$"}, "0001 0005"},
        {{"--grep", "(second|fifth) ERROR", "-i"}, "0002 0005"},
        {{"--grep", "^with a"}, "0003 with"},
        {{"--headers", "--app", "two"}, "****      0002"},
        {{"--app", "t*", "--app", "o?"}, "0002 0004 0005"},
        {{"--grep", "first", "--grep", "f[io]"}, "0001 0004 0005"},
        {{"--grep", "{}"}, ""},
        {{"-v", "--grep", "error", "--grep", "third", "-i"}, "0004"},
        {{"-C", "1", "--grep", "third"}, "0002 0003 with 0004"},
        {{"-r", "-n", "3"}, "0005 0004 0003 with"},
        {{"-r", "-S", "2026-11-22 10:00:30", "-C", "1", "--app", "one"}, "0004 0003 with 0002"}};
    for (auto [words, pszExpected] : cases) {
        words.push_back("plain");
        EXPECT_EQ(counters(words), pszExpected) << ::testing::PrintToString(words);
    }
    EXPECT_EQ(show({"-o", "short", "-C", "1", "--grep", "first", "--grep", "fifth", "plain"}),
              "2026/11/22 10:00:00.000 one              first error\n"
              "2026/11/22 10:00:30.000 two              OTHER 2          WARN second Error\n--\n"
              "2026/11/22 11:00:00.500 three            LONGIDENTIFIER16 WARN fourth\n"
              "2026/11/22 11:00:01.000 three            plain and fifth error\n");
    EXPECT_EQ(show({"--columns", "counter,pid,tid,id,type,body,host,source", "--tid", "main", "plain"}),
              "0003 00000010 main                                third host plain\n");
    EXPECT_EQ(show({"--columns", "type,file,text", "--tid", "main", "plain"}),
              "     plain third\nwith a tail\n");
    EXPECT_EQ(show({"--count", "app", "plain"}), "       2  one\n       2  three\n       1  two\n");
    EXPECT_EQ(show({"--count", "minute", "-S", "2026-11-22 11:00", "plain"}), "       2  2026/11/22 11:00\n");
    const std::string bars = show({"--histogram", "plain"});
    EXPECT_EQ(bars.substr(0, bars.find('\n')), "       2  2026/11/22 10:00  " + std::string(40, '#'));
    EXPECT_EQ(std::count(bars.begin(), bars.end(), '\n'), 31); // of two minutes each
    EXPECT_EQ(show({"--count", "pid", "-o", "json", "plain"}),
              "{\"pid\":6699,\"count\":3}\n{\"pid\":16,\"count\":2}\n");
}

TEST_F(Show, UnderstandsTimesRelativeToNow)
{
    const auto at = [](long lSecondsAgo) {
        const time_t lThen = time(nullptr) - lSecondsAgo;
        char text[32];
        (void)strftime(text, sizeof text, "%Y/%m/%d %H:%M:%S.000", localtime(&lThen));
        return std::string(text);
    };
    writeFile("plain", line(1, at(200000), "x") + line(2, at(7000), "x") + line(3, at(60), "x"));
    EXPECT_EQ(counters({"-S", "-2h", "-U", "now", "plain"}), "0002 0003");
    EXPECT_EQ(counters({"-S", "@" + std::to_string(time(nullptr) - 7200), "plain"}), "0002 0003");
    EXPECT_EQ(counters({"-S", "2d12h ago", "-U", "yesterday", "plain"}), "0001");
    EXPECT_EQ(counters({"-S", "1 hour 59 minutes ago", "-U", "1 second ago", "plain"}), "0002 0003");
    for (const char* pszWhen : {"", "noon", "25:00", "2026-13-01", "2026-11-22T10", "-5", "@x", "10:00x",
                                "@60000000000000", "9999999w ago"})
        EXPECT_EQ(zebu2({"show", "--since", pszWhen, "plain"}).status, 2) << pszWhen;
    EXPECT_EQ(zebu2({"show", "--grep", "", "plain"}).status, 2);
}

TEST_F(Show, TellsByItsStatusWhatWasFound)
{
    writeRing({line(1, "10:00:00.000", "x")}, 1);
    writeFile("empty", "");
    writeFile("text", "no line\r\n");
    writeFile("one1.log", fileHeader() + line(1, "10:00:00.000", "x")); // its log was opened at nine
    expectStatus(0, {"show app", "show -S 2026-11-22T09:59 app", "--help"});
    expectStatus(1, {"show --grep y app", "show empty", "show --count app text",
                     "show -S 2026-11-22T10:00 --grep y app"});
    expectStatus(3, {"show -S 2026-11-22T09:59 --grep y app", "show -S 2026-11-22T09:59 --grep y one"});
    expectStatus(2, {"show none", "show none app", "show " + path("mmap"), "show --grep ( app",
                     "show --pid 12x app", "show -o xml app", "show -v app", "show --columns app, app",
                     "show --columns app -o json app", "show -r -f app", "show -r -", "show --columns x app",
                     "show --count app -f app", "", "nothing"});
}

TEST_F(Show, ReadsASharedRingOldestFirstAndNothingBehindAMark)
{
    const std::string old = plainLines(90, 99), newest = fileHeader() + plainLines(7, 8);
    writeShared(1, newest, old);
    writeShared(2, fileHeader() + plainLines(1, 3), old);
    writeShared(3, fileHeader() + plainLines(4, 6), std::string("\0\0", 2) + old);
    writeRecord(1, newest.size());
    EXPECT_EQ(show({"app"}), asText(plainLines(1, 8)));
    // The record is damaged: its place is worked out from the files.
    for (int n = 1; n <= 3; ++n)
        age(traceFile(n), n == 1 ? 0 : 60 - n);
    for (const size_t uOffset : {0UL, 8UL, 12UL, 20UL}) {
        writeRecord(1, 4000);
        writeFile(managementFile(), readFile(managementFile()).replace(uOffset, 4, 4, '\0'));
        EXPECT_EQ(show({"app"}), asText(plainLines(1, 8))) << uOffset;
    }
    // The record is valid but its offset is wrong, and a file is missing.
    ASSERT_EQ(unlink(traceFile(2).c_str()), 0);
    for (const unsigned uOffset : {0u, 300u, 4000u, 70000u}) {
        writeRecord(1, uOffset);
        EXPECT_EQ(show({"app"}), asText(plainLines(4, 8))) << uOffset;
    }
}

// In a ring of one process there are no marks, elsewhere all 48 bytes make one.
TEST_F(Show, TakesALoggedTextForNoMark)
{
    const std::string like =
        line(1, "10:00:00.000", "a\r\n\x1A") + line(2, "10:00:01.000", "\r\n\x1A\r\n\r\nb");
    const std::string whole = like + mark() + "\r\n" + plainLines(3, 3);
    const auto raw = [](const std::string& source, const std::string& input = "") {
        const ToolResult result = zebu2({"show", "-o", "raw", "--until", "now", source}, input);
        EXPECT_EQ(splitLines(result.err + "\r\n").size(), 1u);
        return result.out + (result.err.find("that look like") == std::string::npos ? "" : "<said>");
    };
    writeShared(1, like, whole);
    writeShared(2, plainLines(3, 4));
    writeRecord(2, plainLines(3, 4).size(), 2);
    EXPECT_EQ(raw("app"), like + plainLines(3, 4) + "<said>");
    EXPECT_EQ(raw("app1.log"), like + "<said>");
    EXPECT_EQ(raw("-", like), like + "<said>");
    EXPECT_EQ(shell("(head -c 170 app1.log; sleep 0.1; tail -c +171 app1.log) | " + m_tool +
                    "-o raw - 2> /dev/null"),
              like);
    writeFile("one1.log", whole);
    EXPECT_EQ(raw("one"), whole);
}

TEST_F(Show, ReadsAsManyFilesAsASharedRingCanHave)
{
    Lines files;
    for (int n = 1; n <= 64; ++n)
        files.push_back(plainLines(n, n));
    writeRing(files, 30);
    EXPECT_EQ(show({"app"}), asText(plainLines(31, 64) + plainLines(1, 30)));
    expectStatus(0, {"stat --check app"});
    ASSERT_EQ(unlink(traceFile(64).c_str()), 0);
    expectStatus(1, {"stat --check app"});
}

TEST_F(Show, ReadsWhatTheLibraryWrote)
{
    std::string all = m_tool + "-o raw";
    for (const int iOption : {-1, 0, ZEBU2_OPT_NOFILL, ZEBU2_OPT_NOFILL | ZEBU2_OPT_CURRENT_ONLY}) {
        const std::string name = "ring" + std::to_string(iOption);
        const int iChild = inChild([&] {
            const tagZEBU_LOGFILE_SPEC* pSpec = ring(4096, 3, name);
            CHECK((iOption < 0 ? ZEBU2_Initialize(pSpec, "app") : ZEBU2_InitializeM(pSpec, "app", iOption)) ==
                  0);
            for (int i = 0; i < 150; ++i)
                CHECK(ZEBU2_PutLine(0, std::to_string(i).c_str()) == 0);
            CHECK(ZEBU2_TraceBackup(path("backup").c_str()) == 0);
            CHECK(ZEBU2_Finalize() == 0);
        });
        ASSERT_EQ(iChild, 0);
        const Lines shown = splitLines(show({"-o", "raw", name}));
        EXPECT_EQ(shown, traceLines(readFile("backup"))) << iOption;
        for (const size_t uLast : {1ul, 30ul, shown.size()})
            EXPECT_EQ(splitLines(show({"-o", "raw", "-n", std::to_string(uLast), name})),
                      Lines(shown.end() - static_cast<long>(uLast), shown.end()));
        EXPECT_EQ(splitLines(show({"-o", "raw", "-r", name})), Lines(shown.rbegin(), shown.rend()));
        EXPECT_EQ(body(shown.back()), "149");
        expectStatus(0, {"backup " + name + " copy"});
        EXPECT_EQ(readFile("copy"), readFile("backup"));
        for (int i = 0; i < 12; ++i)
            all += " " + name;
    }
    // For many sources few descriptors do.
    EXPECT_EQ(shell("ulimit -n 12; timeout 20 " + all + " 2>&1"), shell(all));
}

TEST_F(Show, MergesSourcesByTime)
{
    writeFile("a", line(1, "10:00:00.000", "x") + line(3, "10:00:02.000", "x"));
    const std::string b =
        line(2, "10:00:01.000", "x\r\ntail") + line(2, cs_pszMasked, "x") + line(4, "10:00:03.000", "x");
    EXPECT_EQ(counters({"a", "-"}, b), "0001 0002 tail 0002 0003 0004");
}

// Its first line is hours older than what is asked for, and so is that of the next file: it is not read.
TEST_F(Show, PassesOverFilesThatAreOlderThanSince)
{
    const std::string old = line(1, "10:00:00.000", "x") + line(2, "23:00:00.000", "set wrong");
    for (const bool shared : {false, true})
        for (const auto& [time, expected] :
             {std::pair("17:59:59.000", "0004"), {"18:00:00.000", "0002 0004"}}) {
            writeRing({old, line(3, time, "x") + line(4, "23:00:00.000", "x"), ""}, 2, shared);
            EXPECT_EQ(counters({"-S", "2026-11-22 20:00", "app"}), expected) << shared;
            EXPECT_EQ(counters({"-r", "-S", "2026-11-22 20:00", "-n", "1", "app"}), "0004") << shared;
        }
    expectStatus(1,
                 {"show -S 2026-11-22T20:00 --grep none app", "show -r -S 2026-11-22T20:00 --grep none app"});
}

// A time that somebody set, in the year 2267, which nanoseconds of 64 bits do not reach.
TEST_F(Show, OrdersFilesByAnyTime)
{
    writeFile("one1.log", plainLines(1, 2));
    writeFile("one2.log", plainLines(3, 4));
    const timespec times[2] = {{0, UTIME_OMIT}, {9390000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, "one2.log", times, 0), 0);
    EXPECT_EQ(show({"one"}), asText(plainLines(1, 4)));
}

// Half a line that nobody has gone on with for long is not waited for, in none of many rings.
TEST_F(Show, WaitsForNoRestInFilesThatAreLeft)
{
    std::string all = "timeout 8 " + std::string(zebu2Path) + " show -o raw", expected;
    for (int i = 0; i < 200; ++i) {
        const std::string ring = "left-" + std::to_string(i) + "-";
        const timespec times[2] = {{0, UTIME_OMIT}, {1700000000, 0}};
        writeFile(ring + "1.log", "half");
        ASSERT_EQ(utimensat(AT_FDCWD, (ring + "1.log").c_str(), times, 0), 0);
        all += " " + ring;
        expected += "half";
    }
    EXPECT_EQ(shell(all), expected);
}

TEST_F(Show, IsHarmlessToATerminal)
{
    if (std::system("script -qec true /dev/null > /dev/null 2>&1") != 0)
        GTEST_SKIP() << "no terminals here, as in a bare chroot";
    const std::string text = line(1, "10:00:00.000", "\xC2\x9B \x7F \x1B[2J\xE2\x80\xAE");
    writeFile("a", text);
    const auto onTerminal = [&](const std::string& environment, const std::string& options) {
        return shell("script -qec '" + environment + " " + m_tool + options + "' /dev/null");
    };
    EXPECT_EQ(onTerminal("NO_COLOR=1 TERM=xterm", "a"),
              text.substr(0, 68) + "\\xC2\\x9B \\x7F \\x1B[2J\\xE2\\x80\\xAE\r\n");
    EXPECT_NE(onTerminal("NO_COLOR= TERM=xterm", "a").find("\x1B[36mapp "), std::string::npos);
    std::string lines = plainLines(1, 1000);
    while (lines.size() < 70000000)
        lines += lines;
    writeFile("big", lines);
    EXPECT_NE(onTerminal("", "big > /dev/null").find("\rzebu2: 64 MiB"), std::string::npos);
    EXPECT_NE(onTerminal("", "-o json a").find("\"\\u009b \\u007f \\u001b[2J\\u202e\""), std::string::npos);
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
    writeFile("big", bytes);
    const std::string fast = show({"-o", "raw", "big"});
    EXPECT_EQ(show({"big"}), asText(fast));
    EXPECT_EQ(show({"--until", "2030-01-01", "big"}), asText(fast));
    EXPECT_EQ(splitLines(fast), traceLines(bytes));
    EXPECT_EQ(fast, show({"-o", "raw", "--until", "2030-01-01", "big"}));
    EXPECT_EQ(show({"-o", "raw", "--grep", "^y", "big"}).size(), 68 + 300002 + 200002u);
    EXPECT_EQ(counters({"--grep", "^end", "big"}), "0002");
    // From the end: of one source and of two, more and fewer lines than a look back reads.
    writeFile("other", line(1, "10:00:00.000", "x") + line(2, "12:00:00.000", "x"));
    for (Words words : {Words{"show", "-o", "json", "-n", "all", "big"},
                        {"show", "-o", "json", "-n", "all", "big", "other"}}) {
        const Lines all = outLines(words);
        Lines newestFirst;
        long lBehind = 0; // what continues a record stays behind it
        for (const std::string& object : all) {
            lBehind = object.starts_with("{\"kind\":\"text\"") ? lBehind + 1 : 0;
            newestFirst.insert(newestFirst.begin() + lBehind, object);
        }
        words.push_back("-r");
        EXPECT_EQ(outLines(words), newestFirst);
        words.pop_back();
        for (const size_t uLast : {0ul, 1ul, 3ul, 150ul, all.size() - 1, all.size() + 9}) {
            words[4] = std::to_string(uLast);
            EXPECT_EQ(outLines(words),
                      Lines(all.end() - static_cast<long>(std::min(uLast, all.size())), all.end()));
        }
    }
}
