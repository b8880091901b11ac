// Rings that are read while they are written: what is complete is read once, in order, and nothing else.
#include <limits.h>

#include "support/Tool.h"
#include "tools/reader/Merge.h"
#include "tools/reader/Newest.h"

namespace {
// A source that is read step by step.
class Follow : public ToolTest
{
protected:
    void openRing(bool bFollow = true)
    {
        int iError = 0;
        m_source = ZEBU_OpenSource(
            prefix(), bFollow, [this](const std::string&) { ++m_iWarnings; }, &iError);
        ASSERT_TRUE(m_source) << iError;
    }
    // What can be read now, in that many reads; a gap shows as "<gap>".
    std::string readOn(int iReads = INT_MAX)
    {
        std::string bytes;
        char block[1000];
        ZEBURead eRead = ZEBURead::Gap;
        for (; iReads > 0 && eRead != ZEBURead::Idle && eRead != ZEBURead::End; --iReads) {
            size_t uGot = 0;
            eRead = m_source->read(block, sizeof block, &uGot);
            bytes.append(block, uGot).append(eRead == ZEBURead::Gap ? "<gap>" : "");
        }
        return bytes;
    }
    // File n of a ring of one process, with lines of these counters.
    void fill(int n, int iFirst, int iLast) const { writeFile(traceFile(n), plainLines(iFirst, iLast)); }

    std::unique_ptr<ZEBUSource> m_source;
    int m_iWarnings = 0;
};

// A source that hands out a text, then nothing new, and counts how often it is asked.
class CountedSource final : public ZEBUSource
{
public:
    CountedSource(const std::string& bytes, int* piAsked)
        : ZEBUSource([](const std::string&) {}), m_bytes(bytes), m_piAsked(piAsked)
    {
    }
    ZEBURead read(char* pBuffer, size_t uSize, size_t* puGot) override
    {
        ++*m_piAsked;
        *puGot = m_bytes.copy(pBuffer, std::min<size_t>(uSize, 4096));
        m_bytes.erase(0, *puGot);
        return *puGot > 0 ? ZEBURead::Bytes : ZEBURead::Idle;
    }
    const std::string& file() const override { return m_bytes; }

private:
    std::string m_bytes;
    int* m_piAsked;
};
} // namespace

TEST_F(Follow, AsksIdleSourcesSeldomWhileOthersAreBusy)
{
    int iBusy = 0, iIdle = 0;
    ZEBUMerge merge(1000000);
    merge.add("idle", std::make_unique<CountedSource>("", &iIdle));
    merge.add("busy", std::make_unique<CountedSource>(plainLines(1, 3000), &iBusy));
    ZEBURecord record;
    for (int i = 1; i <= 3000; ++i) {
        ASSERT_EQ(merge.next(&record), ZEBUNext::Record);
        ASSERT_EQ(record.line.iCounter, i);
    }
    EXPECT_LE(iIdle, 2);
    EXPECT_EQ(merge.next(&record), ZEBUNext::Idle);
    const int iBefore = iIdle;
    EXPECT_EQ(merge.next(&record), ZEBUNext::Idle);
    EXPECT_EQ(iIdle, iBefore + 1); // when nobody has anything, all are asked
}

TEST_F(Follow, WaitsForALineThatIsOnItsWay)
{
    const std::string old = plainLines(1, 2), next = plainLines(3, 3), all = old + next;
    // In each state the record already tells of the line, or the line is there and the record does not tell.
    const std::tuple<const char*, std::string, size_t> states[] = {
        {"nothing stored", old + mark(), all.size()},
        {"line without its mark", all, all.size()},
        {"mark without its line", old + "\x1A" + std::string(next.size() - 1, 'x') + mark(), all.size()},
        {"everything but the offset", all + mark(), old.size()}};
    for (const auto& [pszName, live, uOffset] : states) {
        writeRing({old}, 1);
        openRing();
        EXPECT_EQ(readOn(), old);
        writeFile(traceFile(1), live);
        writeRecord(1, static_cast<unsigned>(uOffset), 1);
        EXPECT_EQ(readOn(), "") << pszName;
        writeRing({all}, 1);
        EXPECT_EQ(readOn(), next) << pszName;
        EXPECT_EQ(m_iWarnings, 0);
    }
}

TEST_F(Follow, SaysWhenTheRingOvertookItAndMixesNoCycles)
{
    writeRing({plainLines(1, 3), "", ""}, 1);
    openRing();
    writeRing({plainLines(1, 3), plainLines(4, 5), plainLines(6, 6)}, 3);
    EXPECT_EQ(readOn(), plainLines(1, 6)); // it has not come round yet
    writeRing({plainLines(1, 3), ""}, 1);
    openRing();
    EXPECT_EQ(readOn(), plainLines(1, 3));
    writeRing({plainLines(25, 29), plainLines(20, 24)}, 1);
    EXPECT_EQ(readOn(), "<gap>" + plainLines(20, 29));
    EXPECT_EQ(m_iWarnings, 1);
    // Round again, but not as far as the place that was read.
    writeRing({plainLines(32, 32), plainLines(30, 31)}, 1);
    EXPECT_EQ(readOn(), "<gap>" + plainLines(30, 32));
    // A ring of one file that comes round, also over half a line: what was read of it was not whole.
    writeRing({plainLines(1, 2)}, 1);
    openRing();
    EXPECT_EQ(readOn(), plainLines(1, 2));
    writeRing({plainLines(1, 3)}, 1);
    EXPECT_EQ(readOn(1), plainLines(3, 3));
    writeRing({plainLines(50, 51)}, 1);
    EXPECT_EQ(readOn(), "<gap>" + plainLines(50, 51));
}

TEST_F(Follow, ReadsNewestFirstUntilTheRingComesRound)
{
    writeRing({plainLines(3, 4), plainLines(5, 6), plainLines(1, 2)}, 2);
    writeFile(path("plain"), line(9, "10:00:04.500", "x"));
    ZEBUNewestFirst newest(2, ZEBU_TIME_NONE);
    EXPECT_EQ(newest.add(prefix(), [this](const std::string&) { ++m_iWarnings; }), 0);
    EXPECT_EQ(newest.add(path("plain"), {}), 0);
    std::string read;
    for (ZEBURecord record; newest.next(&record);) {
        if (record.line.iCounter == 3) // the ring comes to its oldest file, in which nothing was read
            writeRing({plainLines(3, 4), plainLines(5, 6), plainLines(7, 7)}, 3);
        read += record.eKind == ZEBURecordKind::Gap ? "<gap>" : std::to_string(record.line.iCounter);
    }
    EXPECT_EQ(read, "65943<gap>");
    EXPECT_EQ(m_iWarnings, 1);
}

TEST_F(Follow, GoesOnInARepairedOrReplacedRecord)
{
    writeRing({plainLines(1, 2)}, 1);
    openRing();
    EXPECT_EQ(readOn(), plainLines(1, 2));
    writeRecord(0, 0, 1);
    EXPECT_EQ(readOn(), "");
    EXPECT_EQ(unlink(managementFile().c_str()), 0);
    writeRing({plainLines(1, 3)}, 1);
    EXPECT_EQ(readOn(), plainLines(3, 3));
}

TEST_F(Follow, GoesOnWithASharedRingThatIsMadeAnew)
{
    // The new ring has fewer or more bytes than were read of the old one, and stands in another file of it.
    for (const auto& [iOld, iFiles, iCurrent, iLast] :
         {std::tuple(3, 3, 1, 11), std::tuple(3, 3, 1, 30), std::tuple(3, 1, 1, 12), std::tuple(2, 2, 2, 14),
          std::tuple(1, 3, 1, 11), std::tuple(1, 3, 1, 30)}) {
        const auto writeOld = [&, iNumber = iOld](int iLines) {
            Lines contents(3);
            contents[static_cast<size_t>(iNumber) - 1] = plainLines(1, iLines);
            writeRing(contents, static_cast<size_t>(iNumber));
        };
        writeOld(9);
        openRing();
        EXPECT_EQ(readOn(), plainLines(1, 9));
        writeOld(10); // the last line is still to be read
        for (const std::string& name : {traceFile(1), traceFile(2), traceFile(3), managementFile()})
            EXPECT_EQ(rename(name.c_str(), (name + ".old").c_str()), 0);
        EXPECT_EQ(readOn(), plainLines(10, 10));
        Lines anew(static_cast<size_t>(iFiles));
        anew[static_cast<size_t>(iCurrent) - 1] = plainLines(11, iLast);
        writeRing(anew, static_cast<size_t>(iCurrent));
        EXPECT_EQ(readOn() + readOn(), "<gap>" + plainLines(11, iLast)) << iOld << iFiles << iLast;
        EXPECT_EQ(std::exchange(m_iWarnings, 0), 1);
    }
}

TEST_F(Follow, ReadsTheRingOfOneProcessOverItsSwitches)
{
    fill(1, 1, 2);
    openRing();
    EXPECT_EQ(readOn(), plainLines(1, 2));
    const std::pair<std::vector<std::array<int, 3>>, std::string> steps[] = {
        {{{1, 1, 3}, {2, 4, 4}, {3, 5, 5}}, plainLines(3, 5)},
        {{{1, 6, 6}}, plainLines(6, 6)},
        {{{2, 7, 7}, {3, 8, 8}, {1, 9, 9}}, "<gap>" + plainLines(7, 9)}};
    for (const auto& [files, expected] : steps) {
        for (const auto& [n, iFirst, iLast] : files)
            fill(n, iFirst, iLast);
        EXPECT_EQ(readOn(), expected);
    }
    EXPECT_EQ(m_iWarnings, 1);
    openRing();
    fill(2, 10, 10); // before it was read
    EXPECT_EQ(readOn(), "<gap>" + plainLines(8, 10));
    // Half a line, and its rest is gone: it is no beginning of what comes then.
    ZEBUMerge merge;
    merge.add("ring", std::move(m_source));
    const auto records = [&] {
        std::string bytes;
        for (ZEBURecord record; merge.next(&record) == ZEBUNext::Record;) {
            bytes.append(record.svBytes).append("|");
            EXPECT_NE(record.lTime, ZEBU_TIME_NONE); // a gap has that of the line before
        }
        return bytes;
    };
    writeFile(traceFile(2), plainLines(10, 11) + plainLines(12, 12).substr(0, 40));
    EXPECT_EQ(records(), plainLines(11, 11) + "|");
    fill(3, 20, 20);
    fill(1, 21, 21);
    fill(2, 22, 22);
    EXPECT_EQ(records(),
              "|" + plainLines(20, 20) + "|" + plainLines(21, 21) + "|" + plainLines(22, 22) + "|");
}

// Nothing but the contents tells of it: the record stands where it stood, the files have the time they had.
TEST_F(Follow, NoticesThatTheRingCameWholeTimesRound)
{
    const auto writeCycle = [&](bool bShared, int iFirst) {
        const Lines files = {plainLines(iFirst, iFirst + 8), plainLines(iFirst + 9, iFirst + 17),
                             plainLines(iFirst + 18, iFirst + 26)};
        if (bShared)
            writeRing(files, 3);
        for (int n = 1; n <= 3; ++n) {
            if (!bShared)
                writeFile(traceFile(n), files[static_cast<size_t>(n) - 1]);
            age(traceFile(n), 60);
        }
    };
    for (int i = 0; i < 8; ++i) {
        const bool bShared = i >= 4; // from then on there is a management file
        writeCycle(bShared, 100);
        openRing(i & 1);
        (void)readOn(i & 2 ? 8 : 1);
        writeCycle(bShared, 200);
        EXPECT_EQ(readOn(), "<gap>" + plainLines(200, 226)) << i;
    }
}

TEST_F(Follow, ShowsEveryLineOfTwoWritersOnceInOrderOverManySwitches)
{
    const int iCount = 500;
    const auto text = [](char writer, int i) {
        return writer + std::to_string(i) + std::string(static_cast<size_t>(i % 60), '.');
    };
    const auto write = [&](char writer, int iLines) {
        CHECK(ZEBU2_InitializeM(ring(16384, 12), "writer", 0) >= 0);
        ZEBU2_SetLockRetryTimes(1000);
        for (int i = 0; i < iLines; ++i)
            CHECK(ZEBU2_PutLine(0, text(writer, i).c_str()) == 0);
        CHECK(ZEBU2_Finalize() == 0);
    };
    ASSERT_EQ(inChild([&] { write('-', 0); }), 0);
    RunningTool tool(
        {"show", "-f", "-n", "all", "-o", "raw", "--interval", "1", "--grep", "^[abz]", prefix()});
    const pid_t writers[] = {startChild([&] { write('a', iCount); }),
                             startChild([&] { write('b', iCount); })};
    EXPECT_EQ(waitForChild(writers[0]) | waitForChild(writers[1]), 0);
    expectStatus(0, {"put --ring " + prefix() + " --size 16384 --files 12 --shared z"});
    int next[2] = {0, 0};
    Lines shown = bodies(splitLines(tool.readUntil(" z\r\n")));
    shown.pop_back();
    for (const std::string& line : shown)
        ASSERT_EQ(line, text(line[0], next[line[0] == 'b']++));
    EXPECT_EQ(next[0] + next[1], 2 * iCount);
    EXPECT_TRUE(exists(traceFile(6)));
    tool.signal(SIGTERM);
    EXPECT_EQ(tool.wait(), 0);
}

TEST_F(Follow, EndsQuietlyWithItsReader)
{
    fill(1, 1, 7);
    fill(2, 8, 12);
    age(traceFile(1), 60);
    RunningTool tool({"show", "-f", prefix()});
    const std::string first = tool.readUntil("message 12\n"); // the last ten
    EXPECT_EQ(std::count(first.begin(), first.end(), '\n'), 10) << first;
    tool.closeOutput();
    EXPECT_EQ(tool.wait(), 0); // though nothing is written any more
    startArea();
    for (const Words& words : {Words{"show", "-f", "--grep", "none", prefix()}, Words{"drain", "-f"}}) {
        RunningTool idle(words);
        idle.end();
        EXPECT_EQ(idle.wait(), 0) << words[0]; // nothing came
    }
    stop();
}

TEST_F(Follow, GoesOnWhereTheCursorSays)
{
    const auto gap = [&](const char* pszFiles) {
        return "---- " + prefix() + ": lines of " + pszFiles + " or more may be missing here ----\n";
    };
    struct Step
    {
        Lines files;
        size_t uCurrent;
        std::string shown;
    };
    const Step steps[] = {
        {{plainLines(1, 3)}, 1, plainLines(1, 3)},
        {{plainLines(1, 3)}, 1, ""},
        {{plainLines(1, 5)}, 1, plainLines(4, 5)},
        {{plainLines(1, 6), plainLines(7, 8)}, 2, plainLines(6, 8)},
        {{plainLines(1, 6), plainLines(7, 9), plainLines(10, 10)}, 3, plainLines(9, 10)},
        {{plainLines(11, 12), plainLines(7, 9), plainLines(10, 10)}, 1, plainLines(11, 12)},
        {{plainLines(20, 21), plainLines(22, 23), plainLines(24, 25)},
         3,
         gap("3 files") + plainLines(20, 25)},
        {{plainLines(20, 21), plainLines(22, 23), plainLines(24, 24)}, 3, gap("1 file") + plainLines(20, 24)},
        {{fileHeader() + plainLines(30, 31)}, 1, gap("1 file") + plainLines(30, 31)},
        {{fileHeader() + plainLines(30, 30) + plainLines(41, 41)},
         1,
         gap("1 file") + plainLines(30, 30) + plainLines(41, 41)}};
    for (const bool bShared : {false, true})
        for (const Step& step : steps) {
            for (int n = 1; n <= 3; ++n)
                (void)unlink(traceFile(n).c_str());
            for (size_t n = 1; n <= step.files.size() && !bShared; ++n) {
                writeFile(traceFile(static_cast<int>(n)), step.files[n - 1]);
                age(traceFile(static_cast<int>(n)), static_cast<long>((step.uCurrent + 3 - n) % 3) * 10);
            }
            if (bShared)
                writeRing(step.files, step.uCurrent);
            const std::string cursor = path(bShared ? "cursor" : "cursor1");
            EXPECT_EQ(zebu2({"show", "--cursor", cursor, prefix()}).out, asText(step.shown)) << bShared;
        }
    // A continued line goes with its beginning, a file of its own counts too, and what is no cursor stays.
    const std::string more = "and more\r\n";
    writeFile(path("plain"), line(1, "10:00:00.000", "x"));
    const Words words = {"show", "-o", "json", "--app", "app", "--cursor", path("cursor"), path("plain")};
    EXPECT_NE(zebu2(words).out, "");
    writeFile(path("plain"), line(1, "10:00:00.000", "x") + more);
    EXPECT_NE(zebu2(words).out.find("and more"), std::string::npos);
    writeFile(path("plain"), line(2, "10:00:01.000", "y"));
    EXPECT_EQ(zebu2(words).out.substr(0, 14), "{\"kind\":\"gap\",");
    writeFile(path("foreign"), "anything");
    expectStatus(2, {"show --cursor " + path("foreign") + " " + prefix(), "show --cursor x -"});
    EXPECT_EQ(readFile(path("foreign")), "anything");
    RunningTool running({"show", "-f", "--cursor", path("cursor"), prefix(), path("plain")});
    writeFile(path("plain"), line(3, "10:00:02.000", "z"));
    (void)running.readUntil(" z\n");
    expectStatus(2, {"show --cursor " + path("cursor") + " " + prefix()});
}

// Killed at any moment and started again: no line is missing, and at most what is between two places that are
// stored comes twice.
TEST_F(Follow, LosesNothingWithACursorHoweverOftenItIsKilled)
{
    const int iKills = 12, iTotal = 14000, iAhead = 2500, iInterval = 1000;
    for (const bool bShared : {false, true}) {
        const std::string name = bShared ? "shared" : "single", out = path(name + ".out");
        int order[2], done[2];
        CHECK(pipe(order) == 0 && pipe(done) == 0);
        const pid_t writer = startChild([&] {
            const tagZEBU_LOGFILE_SPEC* pSpec = ring(65536, 8, name);
            CHECK((bShared ? ZEBU2_InitializeM(pSpec, "app", 0) : ZEBU2_Initialize(pSpec, "app")) >= 0);
            int iTarget = 0;
            for (int i = 1; read(order[0], &iTarget, sizeof iTarget) > 0 && iTarget > 0;
                 (void)!write(done[1], &iTarget, sizeof iTarget))
                for (; i <= iTarget; ++i)
                    CHECK(ZEBU2_PutLine(0, ("#" + std::to_string(i) + ";").c_str()) == 0);
            CHECK(ZEBU2_Finalize() == 0);
        });
        const auto follow = [&](const char* pszOption) {
            CHECK(dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644), 1) == 1);
            execl(zebu2Path, "zebu2", "show", pszOption, "--interval=1", "--cursor", path("cursor").c_str(),
                  path(name).c_str(), nullptr);
        };
        std::vector<int> seen(iTotal + 1);
        int iLast = 0;
        const auto look = [&] {
            seen.assign(iTotal + 1, 0);
            const std::string bytes = readFile(out);
            for (size_t uAt = bytes.find('#'); uAt != std::string::npos; uAt = bytes.find('#', uAt + 1)) {
                char* pszEnd;
                const long lNumber = strtol(bytes.c_str() + uAt + 1, &pszEnd, 10);
                if (*pszEnd == ';' && lNumber >= 1 && lNumber <= iTotal)
                    ++seen[static_cast<size_t>(iLast = static_cast<int>(lNumber))];
            }
            EXPECT_EQ(bytes.find("----"), std::string::npos);
        };
        int iTarget = 500, iKilled = 0;
        CHECK(write(order[1], &iTarget, sizeof iTarget) > 0 && read(done[0], &iTarget, sizeof iTarget) > 0);
        for (; iLast < iTotal || iKilled < iKills; ++iKilled) {
            const auto size = [&] { return exists(out) ? std::filesystem::file_size(out) : 0; };
            const auto uBefore = size(); // the tool may be done before this process runs again
            const pid_t tool = startChild([&] { follow("-f"); });
            iTarget = std::min(iLast + iAhead, iTotal);
            CHECK(write(order[1], &iTarget, sizeof iTarget) > 0);
            for (int i = 0; iLast < iTarget && size() == uBefore; ++i) {
                ASSERT_LT(i, 200000) << iLast;
                (void)usleep(100);
            }
            (void)usleep(static_cast<unsigned>(iKilled * 7919 % 5000)); // any moment
            (void)kill(tool, SIGKILL);
            EXPECT_EQ(waitForChild(tool), 128 + SIGKILL);
            CHECK(read(done[0], &iTarget, sizeof iTarget) > 0);
            look();
            ASSERT_LT(iKilled, 2000);
        }
        CHECK(write(order[1], &(iTarget = 0), sizeof iTarget) > 0);
        EXPECT_EQ(waitForChild(writer), 0);
        (void)inChild([&] { follow("--color=never"); });
        look();
        int iDoubles = 0;
        for (int i = 1; i <= iTotal; ++i) {
            ASSERT_GE(seen[static_cast<size_t>(i)], 1) << i;
            iDoubles += seen[static_cast<size_t>(i)] - 1;
        }
        EXPECT_LE(iDoubles, iKilled * iInterval);
    }
}
