// The put operations: columns and limits of the line, levels and thresholds, destinations and failures.
#include "support/Sandbox.h"

// The texts of one put; an operation takes those that it knows.
struct Texts
{
    const char *pszApp, *pszThread, *pszId, *pszType, *pszText;
};

struct Put
{
    int iFunction; // in the high 8 bits of its error values
    // Goes through the instance, prints the log's own name, prints the calling thread.
    bool bInstance, bOwnName, bOwnThread;
    size_t uIdWidth; // 0 for a plain body, 21, or 16 beside a message type
    int (*call)(ZEBU2_HINSTANCE h, int iLevel, const Texts& t);
};

#define CALL(name, ...)                                                                                      \
    [](ZEBU2_HINSTANCE h, int i, const Texts& t) { return (void)h, ZEBU2_Put##name(__VA_ARGS__); }

constexpr Put cs_puts[] = {
    {0x08000000, false, true, true, 0, CALL(Line, i, t.pszText)},
    {0x09000000, false, true, true, 21, CALL(WithId, i, t.pszId, t.pszText)},
    {0x0A000000, false, false, true, 21, CALL(WithIdEx, i, t.pszApp, t.pszId, t.pszText)},
    {0x20000000, false, false, true, 16, CALL(WithMsgType, i, t.pszApp, t.pszId, t.pszType, t.pszText)},
    {0x23000000, false, false, false, 21, CALL(WithIdAndTidEx, i, t.pszApp, t.pszThread, t.pszId, t.pszText)},
    {0x24000000, false, false, false, 16,
     CALL(WithMsgTypeAndTid, i, t.pszApp, t.pszThread, t.pszId, t.pszType, t.pszText)},
    {0x15000000, true, true, true, 0, CALL(InstanceLine, h, i, t.pszText)},
    {0x16000000, true, true, true, 21, CALL(InstanceWithId, h, i, t.pszId, t.pszText)},
    {0x17000000, true, false, true, 21, CALL(InstanceWithIdEx, h, i, t.pszApp, t.pszId, t.pszText)},
    {0x21000000, true, false, true, 16,
     CALL(InstanceWithMsgType, h, i, t.pszApp, t.pszId, t.pszType, t.pszText)},
};

constexpr Texts cs_plain = {"app", "tid", "id", "type", "text"};

// The line of the calling thread from the application name's column on.
static std::string expectedLine(const Put& put, const Texts& texts, const char* pszLogName)
{
    char line[100], own[9];
    (void)snprintf(own, sizeof own, "%08X", static_cast<unsigned int>(pthread_self()));
    const char* pszName = put.bOwnName ? pszLogName : texts.pszApp;
    const char* pszThread = put.bOwnThread ? own : texts.pszThread;
    const char* pszId = texts.pszId ? texts.pszId : "";
    int iEnd = snprintf(line, sizeof line, "%-16.16s %08X %-8.8s ", pszName ? pszName : "",
                        static_cast<unsigned int>(getpid()), pszThread ? pszThread : "");
    if (put.uIdWidth == 21)
        (void)snprintf(line + iEnd, sizeof line, "%-21.21s ", pszId);
    if (put.uIdWidth == 16)
        (void)snprintf(line + iEnd, sizeof line, "%-16.16s %-4.4s ", pszId,
                       texts.pszType ? texts.pszType : "");
    return line + std::string(texts.pszText).substr(0, put.uIdWidth == 0 ? 4117 : 4095);
}

static std::string now()
{
    timespec time;
    char second[32];
    (void)clock_gettime(CLOCK_REALTIME, &time);
    (void)strftime(second, sizeof second, "%Y/%m/%d %H:%M:%S.", localtime(&time.tv_sec));
    return second + std::to_string(1000 + time.tv_nsec / 1000000).substr(1);
}

// A process log and an instance, each with a ring of its own, that write everything.
class PutTest : public Sandbox
{
protected:
    PutTest() { configure("MapSize = 800000\n"); }

    void start(const char* pszName = "process", const char* pszInstanceName = "instance",
               long lSize = 1000000)
    {
        ASSERT_GE(ZEBU2_Initialize(ring(lSize, 1), pszName), 0);
        ASSERT_GE(ZEBU2_CreateInstance(&hInstance, ring(lSize, 1, "inst"), pszInstanceName), 0);
        setLevels(1000, 0, 1000);
    }
    void stop() const { EXPECT_EQ(ZEBU2_DeleteInstance(hInstance) | ZEBU2_Finalize(), 0); }

    void setLevels(int iLog, int iFile, int iShm) const
    {
        ZEBU2_SetLogLevel(iLog);
        ZEBU2_SetFileThreshold(iFile);
        ZEBU2_SetShmThreshold(iShm);
        ZEBU2_SetInstanceLogLevel(hInstance, iLog);
        ZEBU2_SetInstanceFileThreshold(hInstance, iFile);
        ZEBU2_SetInstanceShmThreshold(hInstance, iShm);
    }

    Lines linesOf(const Put& put) const
    {
        return traceLines(readFile(path(put.bInstance ? "inst1.log" : "app1.log")));
    }

    ZEBU2_HINSTANCE hInstance = nullptr;
};

// Mode 1 alone masks the time, and that of the process log alone.
TEST_F(PutTest, EachPrintsItsColumnsToBothDestinations)
{
    // The names, the time stamp mode, and a zone that the process turns to, mostly within a second.
    const std::tuple<const char*, const char*, int, const char*> logs[] = {
        {"process", "instance", 2, "UTC0"},
        {"sixteen--columns", "seventeen--columns", 1, "WET0WEST,0/0,365/23"},
        {nullptr, nullptr, 0, "IST-5:30"}};
    const std::string tooLong(5000, 'x');
    const Texts rows[] = {cs_plain,
                          {"sixteen--columns", "eight--8", "twenty-one--columns-x", "four", ""},
                          {"sixteen--columnsX", "eight--8X", "twenty-one--columns-xX", "fourX", "\t\xff%s"},
                          {nullptr, nullptr, nullptr, nullptr, tooLong.c_str()}};
    inThreads(1, [&](int) { // which has its own column
        for (const auto& [pszName, pszInstanceName, iMode, pszZone] : logs) {
            (void)setenv("TZ", pszZone, 1);
            tzset();
            start(pszName, pszInstanceName);
            ASSERT_EQ(ZEBU2_SetTimeStumpMode(iMode), iMode);
            for (const Texts& row : rows) {
                for (const Put& put : cs_puts) {
                    const std::string before = now();
                    EXPECT_EQ(put.call(hInstance, 0, row), 0);
                    const std::string line = linesOf(put).back(), time = line.substr(5, 23);
                    const bool bMasked = iMode == 1 && !put.bInstance && put.bOwnThread;
                    EXPECT_TRUE(bMasked ? time == "****/**/** **:**:**.***"
                                        : before <= time && time <= now());
                    EXPECT_EQ(line, areaLines().back());
                    EXPECT_EQ(line.substr(28),
                              "     " + expectedLine(put, row, put.bInstance ? pszInstanceName : pszName));
                }
            }
            stop();
        }
    });
}

TEST_F(PutTest, LevelAndThresholdsChooseTheDestinations)
{
    // The log level and the two thresholds, the message's level, and what gets it.
    const std::tuple<int, int, int, int, size_t, size_t> cases[] = {
        {5, 3, 4, 2, 0, 1},          {5, 3, 4, 3, 1, 1},       {5, 3, 4, 4, 1, 1},
        {5, 3, 4, 5, 1, 0},          {5, 3, 4, 6, 0, 0},       {-1, 0, 1000, 0, 0, 0},
        {1000, -1, 1000, 500, 0, 1}, {1000, 0, -1, 500, 1, 0}, {1000, 1000, 1000, 1000, 1, 1}};
    start();
    for (const auto& [iLog, iFile, iShm, iLevel, uInFile, uInArea] : cases) {
        setLevels(iLog, iFile, iShm);
        for (const Put& put : cs_puts) {
            const auto found = [&] { return std::pair(linesOf(put).size(), areaLines().size()); };
            const auto [uFiled, uShared] = found();
            EXPECT_EQ(put.call(hInstance, iLevel, cs_plain), 0);
            EXPECT_EQ(found(), std::pair(uFiled + uInFile, uShared + uInArea))
                << put.iFunction << ' ' << iLevel;
        }
    }
}

TEST_F(PutTest, CounterIsOneForAllThreadsAndLogsAndWraps)
{
    start();
    setLevels(1, -1, -1);
    EXPECT_EQ(ZEBU2_PutLine(2, "above the log level: takes no number"), 0);
    inThreads(3, [](int) {
        for (int i = 0; i < 3333; ++i)
            ASSERT_EQ(ZEBU2_PutLine(1, "written nowhere"), 0);
    });
    setLevels(1000, 0, 1000);
    EXPECT_EQ(ZEBU2_PutToShm("area", 4) | ZEBU2_PutMsgSigSafe("signal"), 0);
    EXPECT_EQ(ZEBU2_PutInstanceLine(hInstance, 0, "instance") | ZEBU2_PutLine(0, "process"), 0);
    Lines counters = areaLines();
    for (std::string& line : counters)
        line.replace(5, 63, "");
    EXPECT_EQ(counters, (Lines{"9999 area", "0000 signal", "0001 instance", "0002 process"}));
}

// ---- Failures ------------------------------------------------------------------------------------

TEST_F(PutTest, ArgumentsAreCheckedBeforeTheLevel)
{
    for (const Put& put : cs_puts)
        EXPECT_EQ(result(put.call(nullptr, 1001, {})), Result(-1, put.iFunction | (put.bInstance ? 1 : 11)));
    start();
    setLevels(-1, 0, 0);
    for (const Put& put : cs_puts)
        for (const auto& [iLevel, texts] : {std::pair(-1, cs_plain), {1001, cs_plain}, {0, Texts()}})
            EXPECT_EQ(result(put.call(hInstance, iLevel, texts)), Result(-1, put.iFunction | 1));
    EXPECT_EQ(lines(1).size() + areaLines().size(), 0u);
}

TEST_F(PutTest, ReportsTheStateOfItsDestinations)
{
    start("process", "instance", 1); // a size that is refused
    EXPECT_EQ(result(ZEBU2_PutLine(0, "area alone")), Result(-1, 0x0800000B));
    EXPECT_EQ(result(ZEBU2_PutInstanceLine(hInstance, 0, "area alone")), Result(-1, 0x1500000B));
    EXPECT_EQ(areaLines().size(), 2u);
    setAreaField(0, 0x12345678);
    EXPECT_EQ(result(ZEBU2_PutLine(0, "nowhere")), Result(-1, 0x0800001A));
    stop();
    start();
    EXPECT_EQ(result(ZEBU2_PutLine(0, "file alone")), Result(-1, 0x0800001A));
    stop();
    std::filesystem::remove_all(path("mmap"));
    configure("MapSize = 20\n"); // no area
    start();
    EXPECT_EQ(result(ZEBU2_PutLine(0, "file alone")), Result(0, 11));
    EXPECT_EQ(bodies(lines(1)), (Lines{"file alone", "file alone"}));
}

TEST_F(PutTest, ToShmCopiesRawBytesAsALine)
{
    start();
    setLevels(-1, -1, -1);
    ZEBU2_SetTimeStumpMode(1); // does not mask it
    const std::string tooLong(5000, 'l');
    const std::pair<const char*, unsigned long> cases[] = {
        {"ten\0by\0tes", 10}, {tooLong.data(), 5000}, {"ignored", 0}, {nullptr, 0}};
    for (const auto& [pszData, uLength] : cases) {
        EXPECT_EQ(result(ZEBU2_PutToShm(pszData, uLength)), Result(0, 0));
        EXPECT_EQ(areaLines().back().substr(33),
                  expectedLine(cs_puts[0], {"", "", "", "", ""}, "process") +
                      std::string(pszData ? pszData : "", std::min(uLength, 4117ul)));
        EXPECT_NE(areaLines().back()[5], '*');
    }
    EXPECT_EQ(result(ZEBU2_PutToShm(nullptr, 1)), Result(-1, 0x0D000001));
    EXPECT_EQ(areaLines().size(), std::size(cases));
    EXPECT_EQ(lines(1).size(), 0u);
}
