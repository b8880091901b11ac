// The trace area: creation, checks, the ring's arithmetic, damaged headers, dead writers.
#include <chrono>

#include "support/Sandbox.h"

class Area : public Sandbox
{
protected:
    static int putBytes(size_t count) { return ZEBU2_PutToShm(std::string(count, 'x').data(), count); }
    // One line more than before.
    void putOne() const
    {
        const size_t uBefore = areaLines().size();
        EXPECT_EQ(putBytes(1), 0);
        EXPECT_EQ(areaLines().size(), uBefore + 1);
        EXPECT_EQ(areaHeader().uGuard, 0u);
    }
};

TEST_F(Area, IsCreatedForEverybodyAndKept)
{
    (void)umask(077);
    configure("MapSize = 24\n"); // no room for a single byte
    EXPECT_EQ(result(ZEBU2_Initialize(nullptr, "app")), Result(-1, 0x0600001A));
    EXPECT_FALSE(exists(areaFile()));
    configure();
    startArea();
    EXPECT_EQ(fileMode(path("mmap")), 0777);
    EXPECT_EQ(fileMode(areaFile()), 0666);
    EXPECT_EQ(readFile(areaFile()), std::string("ZEBU\0\0\0\0\xE8\xFF\0\0", 12) + std::string(65524, '\0'));
    putOne();
    stop();
    EXPECT_EQ(areaBytes().substr(68), "x\r\n");
    configure("MapSize = 131072\n"); // an area that exists keeps its geometry, and its lines
    startArea();
    EXPECT_EQ(readFile(areaFile()).size(), 131072u);
    EXPECT_EQ(areaHeader().uDataSize, 65512u);
    putOne();
}

TEST_F(Area, RingArithmetic)
{
    configure("MapSize = 4200\n");
    startArea();
    constexpr uint32_t uSize = 4176;
    const uint32_t cases[][4] = {
        // read and write offset, length of the line, and the write offset then
        {0, 0, uSize - 1, uSize - 1},         // an empty ring takes all but one byte
        {0, 0, uSize, 0},                     // and no more
        {100, uSize - 100, 199, 99},          // round the end
        {100, uSize - 100, 200, uSize - 100}, // would look empty
        {500, uSize - 100, 100, uSize},       // up to the very end
        {500, uSize, 100, 100},               // and on from there
        {200, 100, 99, 199},
        {200, 100, 100, 100},
    };
    for (const auto& [uRead, uWrite, uLine, uExpected] : cases) {
        setAreaField(12, uRead);
        setAreaField(16, uWrite);
        ASSERT_EQ(putBytes(uLine - 70), 0);
        EXPECT_EQ(areaHeader().uWriteOffset, uExpected) << uRead << ' ' << uWrite << ' ' << uLine;
        EXPECT_TRUE(uExpected == uWrite || areaBytes().ends_with("x\r\n"));
    }
}

TEST_F(Area, DamagedHeadersAreNeverFollowed)
{
    startArea();
    for (const long lField : {0L, 8L, 12L, 16L}) {
        for (const uint32_t uValue : {1u, 65512u, 65513u, 0x80000000u, 0xFFFFFFE8u, 0xFFFFFFFFu}) {
            for (const auto& [lSound, uSound] : {std::pair(0L, 0x5542455Au), {8, 65512}, {12, 0}, {16, 0}})
                setAreaField(lSound, lSound == lField ? uValue : uSound);
            EXPECT_EQ(result(putBytes(4117)),
                      lField == 0 || uValue > 65512 ? Result(-1, 0x0D00001A) : Result(0, 0))
                << "field at " << lField << " is " << uValue;
        }
    }
    stop();
    setAreaField(0, 0x58585858); // found damaged at the open: attached, but nothing goes in
    startArea();
    EXPECT_EQ(result(putBytes(1)), Result(-1, 0x0D00001A));
    EXPECT_EQ(areaHeader().uMagic, 0x58585858u);
}

TEST_F(Area, AnInterruptedCreationIsFinishedByTheNext)
{
    ASSERT_EQ(mkdir(path("mmap").c_str(), 0777), 0);
    for (const size_t uSize : {0u, 24u, 4097u, 65536u}) {
        writeFile(areaFile(), std::string(uSize, uSize > 4096 ? '\0' : '?')); // small ones are made anew
        startArea();
        putOne();
        stop();
    }
}

TEST_F(Area, RateLimit)
{
    configure("IntervalSec = 86400\nMaxMsgNum = 3\n");
    startArea();
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(putBytes(1), 0);
    EXPECT_EQ(areaLines().size(), 3u);
}

TEST_F(Area, AWriterThatDiedInsideAnAppendIsPassedOver)
{
    startArea();
    const pid_t iDead = startChild([] { _exit(0); });
    siginfo_t info;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(iDead), &info, WEXITED | WNOWAIT), 0);
    using std::chrono::milliseconds;
    const std::tuple<pid_t, milliseconds, milliseconds> cases[] = {
        // Dead but still a zombie, then gone: noticed at once. Alive but standing still: after a while.
        {iDead, milliseconds(0), milliseconds(50)},
        {4194303, milliseconds(0), milliseconds(50)},
        {getppid(), milliseconds(50), milliseconds(1000)}};
    for (const auto& [iHolder, least, most] : cases) {
        auto fastest = most; // other processes may have had the processor
        for (int i = 0; i < 5; ++i) {
            setAreaField(20, static_cast<uint32_t>(iHolder) | 5u << 22);
            const auto begun = std::chrono::steady_clock::now();
            putOne();
            const auto taken = std::chrono::steady_clock::now() - begun;
            fastest = std::min(fastest, std::chrono::duration_cast<milliseconds>(taken));
        }
        EXPECT_TRUE(least <= fastest && fastest < most) << iHolder << ": " << fastest.count() << " ms";
    }
    EXPECT_EQ(waitForChild(iDead), 0);
}
