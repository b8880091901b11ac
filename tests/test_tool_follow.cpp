// Rings that are read while they are written: what is complete is read once, in order, and nothing else.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include "support/Tool.h"
#include "tools/reader/Source.h"

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
    // What can be read now; a gap shows as "<gap>".
    std::string readOn()
    {
        std::string bytes;
        char block[1000];
        for (;;) {
            size_t got = 0;
            const ZEBURead read = m_source->read(block, sizeof block, &got);
            bytes.append(block, got);
            if (read == ZEBURead::Gap)
                bytes += "<gap>";
            if (read == ZEBURead::Idle || read == ZEBURead::End)
                return bytes;
        }
    }
    // Overwrites bytes of a file as they would change in a mapping.
    void store(int n, size_t offset, const std::string& bytes) const
    {
        const int fd = open(traceFile(n).c_str(), O_WRONLY);
        ASSERT_EQ(pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset)),
                  static_cast<ssize_t>(bytes.size()));
        (void)close(fd);
    }
    void append(int n, const std::string& bytes, int flags = 0) const
    {
        const int fd = open(traceFile(n).c_str(), O_WRONLY | O_CREAT | O_APPEND | flags, 0644);
        ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        (void)close(fd);
    }

    std::unique_ptr<ZEBUSource> m_source;
    int m_warnings = 0;
};

unsigned sizeOf(const std::string& bytes)
{
    return static_cast<unsigned>(bytes.size());
}
} // namespace

TEST_F(Follow, WaitsForALineThatIsOnItsWay)
{
    const std::string old = plainLines(1, 2);
    const std::string next = line(3, "10:00:03.000", "next");
    const std::string place = old + next;
    // In each state the record already tells of the line, or the line is there and the record does not tell.
    const struct
    {
        const char* name;
        std::string live;
        unsigned offset;
    } states[] = {
        {"nothing stored", old + mark(), sizeOf(place)},
        {"line without its mark", place, sizeOf(place)},
        {"mark without its line", old + mark().substr(0, 1) + std::string(next.size() - 1, 'x') + mark(),
         sizeOf(place)},
        {"everything but the offset", place + mark(), sizeOf(old)},
    };
    for (const auto& state : states) {
        writeShared(1, old);
        writeRecord(1, sizeOf(old), 1);
        openRing();
        EXPECT_EQ(readOn(), old);
        store(1, 0, state.live);
        writeRecord(1, state.offset, 1);
        EXPECT_EQ(readOn(), "") << state.name;
        store(1, 0, place + mark());
        writeRecord(1, sizeOf(place), 1);
        EXPECT_EQ(readOn(), next) << state.name;
        EXPECT_EQ(m_warnings, 0);
    }
}

TEST_F(Follow, FinishesAFileBeforeItGoesOnToTheNext)
{
    writeShared(1, plainLines(1, 3));
    writeShared(2, "");
    writeShared(3, "", plainLines(80, 89));
    writeRecord(1, sizeOf(plainLines(1, 3)));
    openRing();
    EXPECT_EQ(readOn(), plainLines(1, 3));
    writeShared(1, plainLines(1, 6));
    writeShared(2, fileHeader() + plainLines(7, 9));
    writeShared(3, fileHeader());
    writeRecord(3, sizeOf(fileHeader()));
    EXPECT_EQ(readOn(), plainLines(4, 6) + fileHeader() + plainLines(7, 9) + fileHeader());
    writeShared(3, fileHeader() + plainLines(10, 10));
    writeRecord(3, sizeOf(fileHeader() + plainLines(10, 10)));
    EXPECT_EQ(readOn(), plainLines(10, 10));
}

TEST_F(Follow, SaysWhenTheRingOvertookItAndMixesNoCycles)
{
    writeShared(1, plainLines(1, 3));
    writeShared(2, "");
    writeRecord(1, sizeOf(plainLines(1, 3)), 2);
    openRing();
    EXPECT_EQ(readOn(), plainLines(1, 3));
    writeShared(2, plainLines(20, 24));
    writeShared(1, plainLines(25, 29));
    writeRecord(1, sizeOf(plainLines(25, 29)), 2);
    EXPECT_EQ(readOn(), "<gap>" + plainLines(20, 29));
    EXPECT_EQ(m_warnings, 1);
    // Round again, but not as far as the place that was read.
    writeShared(2, plainLines(30, 31));
    store(1, 0, plainLines(32, 32) + mark());
    writeRecord(1, sizeOf(plainLines(32, 32)), 2);
    EXPECT_EQ(readOn(), "<gap>" + plainLines(30, 32));
}

TEST_F(Follow, GoesOnInARepairedOrReplacedRecord)
{
    writeShared(1, plainLines(1, 2));
    writeFile(path("note"), "");
    writeRecord(1, sizeOf(plainLines(1, 2)), 1);
    openRing();
    EXPECT_EQ(readOn(), plainLines(1, 2));
    writeRecord(0, 0, 1);
    EXPECT_EQ(readOn(), "");
    EXPECT_EQ(unlink(managementFile().c_str()), 0);
    writeShared(1, plainLines(1, 3));
    writeRecord(1, sizeOf(plainLines(1, 3)), 1);
    EXPECT_EQ(readOn(), plainLines(3, 3));
}

TEST_F(Follow, ReadsTheRingOfOneProcessOverItsSwitches)
{
    append(1, plainLines(1, 2));
    openRing();
    EXPECT_EQ(readOn(), plainLines(1, 2));
    append(1, plainLines(3, 3));
    append(2, plainLines(4, 4));
    append(3, plainLines(5, 5));
    EXPECT_EQ(readOn(), plainLines(3, 5));
    append(1, plainLines(6, 6), O_TRUNC);
    EXPECT_EQ(readOn(), plainLines(6, 6));
    append(2, plainLines(7, 7), O_TRUNC);
    append(3, plainLines(8, 8), O_TRUNC);
    append(1, plainLines(9, 9), O_TRUNC);
    EXPECT_EQ(readOn(), "<gap>" + plainLines(7, 9));
    EXPECT_EQ(m_warnings, 1);
}

TEST_F(Follow, KeepsTheOrderWhenTheRingComesRoundBeforeItWasRead)
{
    for (const bool follow : {true, false}) {
        for (int n = 1; n <= 3; ++n) {
            append(n, plainLines(n, n), O_TRUNC);
            age(traceFile(n), 60 - n);
        }
        openRing(follow);
        append(1, plainLines(4, 4), O_TRUNC);
        append(2, plainLines(5, 5), O_TRUNC);
        EXPECT_EQ(readOn(), "<gap><gap>" + (follow ? plainLines(3, 5) : plainLines(3, 3)));
    }
    for (int n = 1; n <= 3; ++n)
        writeShared(n, plainLines(n, n));
    writeRecord(3, sizeOf(plainLines(3, 3)));
    openRing(false);
    for (int n = 1; n <= 3; ++n)
        writeShared(n, plainLines(3 + n, 3 + n));
    writeRecord(3, sizeOf(plainLines(6, 6)));
    EXPECT_EQ(readOn(), "<gap>" + plainLines(4, 6));
}

TEST_F(Follow, ShowsEveryLineOfTwoWritersOnceInOrderOverManySwitches)
{
    const int count = 500;
    RunningTool* tool = nullptr;
    Gate gate;
    const auto writer = [&](char letter) {
        return startChild([&, letter] {
            CHECK(ZEBU2_InitializeM(ring(16384, 12), std::string(1, letter).c_str(), 0) >= 0);
            ZEBU2_SetLockRetryTimes(1000);
            gate.wait();
            for (int i = 0; i < count; ++i)
                CHECK(ZEBU2_PutLine(
                          0, (letter + std::to_string(i) + std::string(static_cast<size_t>(i % 60), '.'))
                                 .c_str()) == 0);
            CHECK(ZEBU2_Finalize() == 0);
        });
    };
    EXPECT_EQ(inChild([&] {
                  CHECK(ZEBU2_InitializeM(ring(16384, 12), "first", 0) >= 0);
                  CHECK(ZEBU2_Finalize() == 0);
              }),
              0);
    RunningTool running({"show", "-f", "--interval", "1", "--grep", "^[abz]", prefix()});
    tool = &running;
    const pid_t a = writer('a');
    const pid_t b = writer('b');
    gate.open();
    EXPECT_EQ(waitForChild(a), 0);
    EXPECT_EQ(waitForChild(b), 0);
    EXPECT_EQ(zebu2({"put", "--ring", prefix(), "--size", "16384", "--files", "12", "--shared", "z"}).status,
              0);
    int next[2] = {0, 0};
    for (const std::string& text : bodies(splitLines(tool->readUntil(" z\r\n")))) {
        int& i = next[text[0] == 'b'];
        if (text[0] == 'z')
            continue;
        ASSERT_EQ(text, text[0] + std::to_string(i) + std::string(static_cast<size_t>(i % 60), '.'));
        ++i;
    }
    EXPECT_EQ(next[0], count);
    EXPECT_EQ(next[1], count);
    EXPECT_TRUE(exists(traceFile(6)));
    running.signal(SIGTERM);
    EXPECT_EQ(running.wait(), 0);
}

TEST_F(Follow, EndsQuietlyWithItsReader)
{
    append(1, plainLines(1, 1));
    RunningTool tool({"show", "-f", prefix()});
    (void)tool.readUntil("message 1\r");
    tool.closeOutput();
    EXPECT_EQ(tool.wait(), 0); // though nothing is written any more
}
