// Rings that are read while they are written: what is complete is read once, in order, and nothing else.
#include <limits.h>

#include "support/Tool.h"
#include "tools/reader/Merge.h"

namespace {
// A source that is read step by step.
class Follow : public ToolTest
{
protected:
    void openRing(bool follow = true)
    {
        int error = 0;
        m_source = ZEBU_OpenSource(
            prefix(), follow, [this](const std::string&) { ++m_warnings; }, &error);
        ASSERT_TRUE(m_source) << error;
    }
    // What can be read now, in that many reads; a gap shows as "<gap>".
    std::string readOn(int reads = INT_MAX)
    {
        std::string bytes;
        char block[1000];
        ZEBURead read = ZEBURead::Gap;
        for (; reads > 0 && read != ZEBURead::Idle && read != ZEBURead::End; --reads) {
            size_t got = 0;
            read = m_source->read(block, sizeof block, &got);
            bytes.append(block, got).append(read == ZEBURead::Gap ? "<gap>" : "");
        }
        return bytes;
    }
    // File n of a ring of one process, with lines of these counters.
    void fill(int n, int first, int last) const { writeFile(traceFile(n), plainLines(first, last)); }

    std::unique_ptr<ZEBUSource> m_source;
    int m_warnings = 0;
};

// A source that hands out a text, then nothing new, and counts how often it is asked.
class CountedSource final : public ZEBUSource
{
public:
    explicit CountedSource(const std::string& bytes, int* asked)
        : ZEBUSource([](const std::string&) {}), m_bytes(bytes), m_asked(asked)
    {
    }
    ZEBURead read(char* buffer, size_t size, size_t* got) override
    {
        ++*m_asked;
        *got = m_bytes.copy(buffer, std::min<size_t>(size, 4096), m_at);
        m_at += *got;
        return *got > 0 ? ZEBURead::Bytes : ZEBURead::Idle;
    }
    const std::string& file() const override { return m_file; }

private:
    const std::string m_bytes;
    const std::string m_file = "counted";
    size_t m_at = 0;
    int* m_asked;
};
} // namespace

TEST_F(Follow, AsksIdleSourcesSeldomWhileOthersAreBusy)
{
    int busy = 0, idle = 0;
    ZEBUMerge merge(1000000);
    merge.add(std::make_unique<CountedSource>("", &idle));
    merge.add(std::make_unique<CountedSource>(plainLines(1, 3000), &busy));
    ZEBURecord record;
    for (int i = 1; i <= 3000; ++i) {
        ASSERT_EQ(merge.next(&record), ZEBUNext::Record);
        ASSERT_EQ(record.line.iCounter, i);
    }
    EXPECT_LE(idle, 2);
    EXPECT_EQ(merge.next(&record), ZEBUNext::Idle);
    const int before = idle;
    EXPECT_EQ(merge.next(&record), ZEBUNext::Idle);
    EXPECT_EQ(idle, before + 1); // when nobody has anything, all are asked
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
    for (const auto& [name, live, offset] : states) {
        writeRing({old}, 1);
        openRing();
        EXPECT_EQ(readOn(), old);
        writeFile(traceFile(1), live);
        writeRecord(1, static_cast<unsigned>(offset), 1);
        EXPECT_EQ(readOn(), "") << name;
        writeRing({all}, 1);
        EXPECT_EQ(readOn(), next) << name;
        EXPECT_EQ(m_warnings, 0);
    }
}

TEST_F(Follow, SaysWhenTheRingOvertookItAndMixesNoCycles)
{
    writeRing({plainLines(1, 3), ""}, 1);
    openRing();
    EXPECT_EQ(readOn(), plainLines(1, 3));
    writeRing({plainLines(25, 29), plainLines(20, 24)}, 1);
    EXPECT_EQ(readOn(), "<gap>" + plainLines(20, 29));
    EXPECT_EQ(m_warnings, 1);
    // Round again, but not as far as the place that was read.
    writeRing({plainLines(32, 32), plainLines(30, 31)}, 1);
    EXPECT_EQ(readOn(), "<gap>" + plainLines(30, 32));
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
    for (const auto& [old, files, current, last] :
         {std::tuple(3, 3, 1, 11), std::tuple(3, 3, 1, 30), std::tuple(3, 1, 1, 12), std::tuple(2, 2, 2, 14),
          std::tuple(1, 3, 1, 11), std::tuple(1, 3, 1, 30)}) {
        const auto writeOld = [&, number = old](int lines) {
            Lines contents(3);
            contents[static_cast<size_t>(number) - 1] = plainLines(1, lines);
            writeRing(contents, static_cast<size_t>(number));
        };
        writeOld(9);
        openRing();
        EXPECT_EQ(readOn(), plainLines(1, 9));
        writeOld(10); // the last line is still to be read
        for (const std::string& name : {traceFile(1), traceFile(2), traceFile(3), managementFile()})
            EXPECT_EQ(rename(name.c_str(), (name + ".old").c_str()), 0);
        EXPECT_EQ(readOn(), plainLines(10, 10));
        Lines anew(static_cast<size_t>(files));
        anew[static_cast<size_t>(current) - 1] = plainLines(11, last);
        writeRing(anew, static_cast<size_t>(current));
        EXPECT_EQ(readOn() + readOn(), "<gap>" + plainLines(11, last)) << old << files << last;
        EXPECT_EQ(std::exchange(m_warnings, 0), 1);
    }
}

TEST_F(Follow, ReadsTheRingOfOneProcessOverItsSwitches)
{
    fill(1, 1, 2);
    openRing();
    EXPECT_EQ(readOn(), plainLines(1, 2));
    fill(1, 1, 3);
    fill(2, 4, 4);
    fill(3, 5, 5);
    EXPECT_EQ(readOn(), plainLines(3, 5));
    fill(1, 6, 6);
    EXPECT_EQ(readOn(), plainLines(6, 6));
    fill(2, 7, 7);
    fill(3, 8, 8);
    fill(1, 9, 9);
    EXPECT_EQ(readOn(), "<gap>" + plainLines(7, 9));
    EXPECT_EQ(m_warnings, 1);
    openRing();
    fill(2, 10, 10); // before it was read
    EXPECT_EQ(readOn(), "<gap>" + plainLines(8, 10));
}

// Nothing but the contents tells of it: the record stands where it stood, the files have the time they had.
TEST_F(Follow, NoticesThatTheRingCameWholeTimesRound)
{
    const auto writeCycle = [&](bool shared, int first) {
        const Lines files = {plainLines(first, first + 8), plainLines(first + 9, first + 17),
                             plainLines(first + 18, first + 26)};
        if (shared)
            writeRing(files, 3);
        for (int n = 1; n <= 3; ++n) {
            if (!shared)
                writeFile(traceFile(n), files[static_cast<size_t>(n) - 1]);
            age(traceFile(n), 60);
        }
    };
    for (int i = 0; i < 8; ++i) {
        const bool shared = i >= 4; // from then on there is a management file
        writeCycle(shared, 100);
        openRing(i & 1);
        (void)readOn(i & 2 ? 8 : 1);
        writeCycle(shared, 200);
        EXPECT_EQ(readOn(), "<gap>" + plainLines(200, 226)) << i;
    }
}

TEST_F(Follow, ShowsEveryLineOfTwoWritersOnceInOrderOverManySwitches)
{
    const int count = 500;
    const auto text = [](char writer, int i) {
        return writer + std::to_string(i) + std::string(static_cast<size_t>(i % 60), '.');
    };
    const auto write = [&](char writer, int lines) {
        CHECK(ZEBU2_InitializeM(ring(16384, 12), "writer", 0) >= 0);
        ZEBU2_SetLockRetryTimes(1000);
        for (int i = 0; i < lines; ++i)
            CHECK(ZEBU2_PutLine(0, text(writer, i).c_str()) == 0);
        CHECK(ZEBU2_Finalize() == 0);
    };
    ASSERT_EQ(inChild([&] { write('-', 0); }), 0);
    RunningTool tool({"show", "-f", "--interval", "1", "--grep", "^[abz]", prefix()});
    const pid_t writers[] = {startChild([&] { write('a', count); }), startChild([&] { write('b', count); })};
    EXPECT_EQ(waitForChild(writers[0]) | waitForChild(writers[1]), 0);
    expectStatus(0, {"put --ring " + prefix() + " --size 16384 --files 12 --shared z"});
    int next[2] = {0, 0};
    Lines shown = bodies(splitLines(tool.readUntil(" z\r\n")));
    shown.pop_back();
    for (const std::string& line : shown)
        ASSERT_EQ(line, text(line[0], next[line[0] == 'b']++));
    EXPECT_EQ(next[0] + next[1], 2 * count);
    EXPECT_TRUE(exists(traceFile(6)));
    tool.signal(SIGTERM);
    EXPECT_EQ(tool.wait(), 0);
}

TEST_F(Follow, EndsQuietlyWithItsReader)
{
    fill(1, 1, 1);
    RunningTool tool({"show", "-f", prefix()});
    (void)tool.readUntil("message 1\r");
    tool.closeOutput();
    EXPECT_EQ(tool.wait(), 0); // though nothing is written any more
}
