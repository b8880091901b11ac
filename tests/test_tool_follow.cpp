// Rings that are read while they are written: what is complete is read once, in order, and nothing else.
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
    // What can be read now, in that many reads or (-1) all; a gap shows as "<gap>".
    std::string readOn(int iReads = -1)
    {
        std::string bytes;
        char block[1000];
        ZEBURead eRead = ZEBURead::Gap;
        for (; iReads != 0 && eRead != ZEBURead::Idle && eRead != ZEBURead::End; --iReads) {
            size_t uGot = 0;
            eRead = m_source->read(block, sizeof block, &uGot);
            bytes.append(block, uGot).append(eRead == ZEBURead::Gap ? "<gap>" : "");
        }
        return bytes;
    }
    // Writes files of a ring of one process: each its number, and the counters of its first and last line.
    void fill(const std::vector<std::array<int, 3>>& files) const
    {
        for (const auto& [n, iFirst, iLast] : files)
            writeFile(traceFile(n), plainLines(iFirst, iLast));
    }

    std::unique_ptr<ZEBUSource> m_source;
    int m_iWarnings = 0;
};

// A source that has nothing new, and counts how often it is asked.
struct IdleSource final : ZEBUSource
{
    IdleSource() : ZEBUSource({}) {}
    ZEBURead read(char*, size_t, size_t* puGot) override
    {
        ++m_iAsked;
        *puGot = 0;
        return ZEBURead::Idle;
    }
    const std::string& file() const override { return m_file; }

    std::string m_file;
    int m_iAsked = 0;
};
} // namespace

TEST_F(Follow, AsksIdleSourcesSeldomWhileOthersAreBusy)
{
    ZEBUMerge merge(1000000);
    auto pIdle = std::make_unique<IdleSource>();
    const int& iIdle = pIdle->m_iAsked;
    merge.add("idle", std::move(pIdle));
    fill({{1, 1, 3000}});
    openRing();
    merge.add("busy", std::move(m_source));
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
    const std::tuple<const char*, std::string, size_t, size_t> states[] = {
        {"nothing stored", old + mark(), 1, all.size()},
        {"line without its mark", all, 1, all.size()},
        {"mark without its line", old + "\x1A" + std::string(next.size() - 1, 'x') + mark(), 1, all.size()},
        {"everything but the offset", all + mark(), 1, old.size()},
        {"a record that is repaired", old + mark(), 0, 0}};
    for (const bool bReplaced : {false, true}) // the management file
        for (const auto& [pszName, live, uCurrent, uOffset] : states) {
            SCOPED_TRACE(pszName);
            writeRing({old}, 1);
            openRing();
            EXPECT_EQ(readOn(), old);
            writeFile(traceFile(1), live);
            writeRecord(uCurrent, uOffset, 1);
            EXPECT_EQ(readOn(), "");
            EXPECT_EQ(bReplaced ? unlink(managementFile().c_str()) : 0, 0);
            writeRing({all}, 1);
            EXPECT_EQ(readOn(), next);
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

TEST_F(Follow, GoesOnWithASharedRingThatIsMadeAnew)
{
    const auto write = [&](size_t uFiles, size_t uCurrent, const std::string& lines) {
        Lines files(uFiles);
        files[uCurrent - 1] = lines;
        writeRing(files, uCurrent);
    };
    // The new ring has fewer or more bytes than were read of the old one, and stands in another file of it.
    for (const auto& [uOld, uFiles, uCurrent, iLast] : {std::tuple(3u, 3u, 1u, 11),
                                                        {3, 3, 1, 30},
                                                        {3, 1, 1, 12},
                                                        {2, 2, 2, 14},
                                                        {1, 3, 1, 11},
                                                        {1, 3, 1, 30}}) {
        write(3, uOld, plainLines(1, 9));
        openRing();
        EXPECT_EQ(readOn(), plainLines(1, 9));
        write(3, uOld, plainLines(1, 10)); // the last line is still to be read
        for (const std::string& name : {traceFile(1), traceFile(2), traceFile(3), managementFile()})
            EXPECT_EQ(rename(name.c_str(), (name + ".old").c_str()), 0);
        EXPECT_EQ(readOn(), plainLines(10, 10));
        write(uFiles, uCurrent, plainLines(11, iLast));
        EXPECT_EQ(readOn() + readOn(), "<gap>" + plainLines(11, iLast)) << uOld << uFiles << iLast;
        EXPECT_EQ(std::exchange(m_iWarnings, 0), 1);
    }
}

TEST_F(Follow, ReadsTheRingOfOneProcessOverItsSwitches)
{
    fill({{1, 1, 2}});
    openRing();
    EXPECT_EQ(readOn(), plainLines(1, 2));
    fill({{1, 1, 3}, {2, 4, 4}, {3, 5, 5}});
    EXPECT_EQ(readOn(), plainLines(3, 5));
    fill({{1, 6, 6}});
    EXPECT_EQ(readOn(), plainLines(6, 6));
    fill({{2, 7, 7}, {3, 8, 8}, {1, 9, 9}});
    EXPECT_EQ(readOn(), "<gap>" + plainLines(7, 9));
    EXPECT_EQ(m_iWarnings, 1);
    openRing();
    fill({{2, 10, 10}}); // before it was read
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
    fill({{3, 20, 20}, {1, 21, 21}, {2, 22, 22}});
    EXPECT_EQ(records(),
              "|" + plainLines(20, 20) + "|" + plainLines(21, 21) + "|" + plainLines(22, 22) + "|");
}

// Nothing but the contents tells of it: the record stands where it stood, the files have the time they had.
TEST_F(Follow, NoticesThatTheRingCameWholeTimesRound)
{
    for (int i = 0; i < 8; ++i) {
        const auto writeCycle = [&](int iFirst) {
            writeRing({plainLines(iFirst, iFirst + 8), plainLines(iFirst + 9, iFirst + 17),
                       plainLines(iFirst + 18, iFirst + 26)},
                      3, i >= 4); // from then on there is a management file
            for (int n = 1; n <= 3; ++n)
                age(traceFile(n), 60);
        };
        writeCycle(100);
        openRing(i & 1);
        (void)readOn(i & 2 ? 8 : 1);
        writeCycle(200);
        EXPECT_EQ(readOn(), "<gap>" + plainLines(200, 226)) << i;
    }
}

TEST_F(Follow, TakesAParkedFileBackOnlyWhereItStillStands)
{
    ZEBUTraceFile file;
    char cFirst;
    fill({{1, 1, 2}, {2, 1, 2}});
    ASSERT_EQ(file.open(traceFile(1)), 0);
    file.park();
    EXPECT_EQ(file.readAt(0, &cFirst, 1), 1);
    file.park();
    EXPECT_EQ(rename(traceFile(2).c_str(), traceFile(1).c_str()), 0); // the same bytes
    EXPECT_EQ(file.readAt(0, &cFirst, 1), -1);
    EXPECT_EQ(errno, ESTALE);
}

TEST_F(Follow, EndsQuietlyWithItsReader)
{
    fill({{1, 1, 7}, {2, 8, 12}});
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
    const auto gap = [&](const char* pszFiles, const std::string& lines) {
        return "---- " + prefix() + ": lines of " + pszFiles + " or more may be missing here ----\n" + lines;
    };
    // What the files hold, which of them is the current one, and what is shown of them.
    const std::tuple<Lines, size_t, std::string> steps[] = {
        {{plainLines(1, 3)}, 1, plainLines(1, 3)},
        {{plainLines(1, 3)}, 1, ""},
        {{plainLines(1, 5)}, 1, plainLines(4, 5)},
        {{plainLines(1, 6), plainLines(7, 8)}, 2, plainLines(6, 8)},
        {{plainLines(1, 6), plainLines(7, 9), plainLines(10, 10)}, 3, plainLines(9, 10)},
        {{plainLines(11, 12), plainLines(7, 9), plainLines(10, 10)}, 1, plainLines(11, 12)},
        {{plainLines(20, 21), plainLines(22, 23), plainLines(24, 25)}, 3, gap("3 files", plainLines(20, 25))},
        {{plainLines(20, 21), plainLines(22, 23), plainLines(24, 24)}, 3, gap("1 file", plainLines(20, 24))},
        {{fileHeader() + plainLines(30, 31)}, 1, gap("1 file", plainLines(30, 31))},
        {{fileHeader() + plainLines(30, 30) + plainLines(41, 41)},
         1,
         gap("1 file", plainLines(30, 30) + plainLines(41, 41))}};
    for (const bool bShared : {false, true})
        for (const auto& [files, uCurrent, shown] : steps) {
            for (int n = 1; n <= 3; ++n)
                (void)unlink(traceFile(n).c_str());
            writeRing(files, uCurrent, bShared);
            const std::string cursor = path(bShared ? "cursor" : "cursor1");
            EXPECT_EQ(zebu2({"show", "--cursor", cursor, prefix()}).out, asText(shown)) << bShared;
        }
    // A continued line goes with its beginning, a file of its own counts too, and what is no cursor stays.
    writeFile(path("plain"), line(1, "10:00:00.000", "x"));
    const Words words = {"show", "-o", "json", "--app", "app", "--cursor", path("cursor"), path("plain")};
    EXPECT_NE(zebu2(words).out, "");
    writeFile(path("plain"), line(1, "10:00:00.000", "x") + "and more\r\n");
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

// Killed at any moment and started again: all lines are shown in their order, and at most those between two
// places that are stored once more.
TEST_F(Follow, LosesNothingWithACursorHoweverOftenItIsKilled)
{
    const size_t uTotal = 28000, uAhead = 1500, uInterval = 1000;
    for (const bool bShared : {false, true}) {
        const std::string name = bShared ? "shared" : "single";
        const tagZEBU_LOGFILE_SPEC* pRing = ring(65536, 8, name);
        ASSERT_EQ(bShared ? ZEBU2_InitializeM(pRing, "app", 0) : ZEBU2_Initialize(pRing, "app"), 0);
        (void)ZEBU2_SetShmThreshold(ZEBU2_LEVEL_OFF);
        size_t uNext = 1, uLast = 0;
        const auto write = [&](size_t uUpTo) {
            for (; uNext <= std::min(uUpTo, uTotal); ++uNext)
                putLine(std::string(uNext % 60, '.') + "#" + std::to_string(uNext) + ";");
        };
        // Of what one run showed, the last line may be torn.
        const auto look = [&](const std::string& shown) {
            std::istringstream in(shown);
            size_t uAgain = uInterval;
            for (std::string line; std::getline(in, line) && line.ends_with(';'); uAgain = 0) {
                const size_t uNumber = std::stoul(line.substr(line.rfind('#') + 1));
                ASSERT_TRUE(uNumber + uAgain > uLast && uNumber <= uLast + 1) << uLast << ": " << line;
                uLast = uNumber;
            }
        };
        for (unsigned uKills = 0; uLast < uTotal && !HasFailure(); ++uKills) {
            write(uLast + uAhead);
            RunningTool tool({"show", "-f", "--interval=1", "--cursor", path("cursor"), path(name)}, 1 << 19);
            (void)tool.readUntil("\n");
            write(uLast + uAhead + uKills * 7919 % uAhead); // while it is read, up to any moment
            tool.signal(SIGKILL);
            EXPECT_EQ(tool.wait(), 128 + SIGKILL);
            look(tool.readUntil("the end"));
        }
        stop();
        look(zebu2({"show", "--cursor", path("cursor"), path(name)}).out);
        EXPECT_EQ(uLast, uTotal);
    }
}
