// The put operations: columns and limits of the line, levels and thresholds, destinations and failures.
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <list>
#include <set>
#include <thread>
#include <tuple>

#include "support/Sandbox.h"

namespace {

// The texts of one put; an operation takes those that it knows.
struct Texts
{
    const char *app, *thread, *id, *type, *text;
};

struct Put
{
    const char* name;
    int function; // in the high 8 bits of its error values
    int (*call)(ZEBU2_HINSTANCE h, int level, const Texts& t);
    bool instance;  // goes through the instance, whose time is never masked
    bool ownName;   // prints the name of the log
    bool ownThread; // prints the calling thread
    size_t idWidth; // 0 for a plain body, 21, or 16 beside a message type

    size_t textMax() const { return idWidth == 0 ? 4117 : 4095; }
};

#define PUT(name, function, arguments, ...)                                                                  \
    {                                                                                                        \
#name, function << 24,                                                                               \
            [](ZEBU2_HINSTANCE h, int level,                                                                 \
               const Texts& t) { return (void)h, ZEBU2_##name arguments; }, __VA_ARGS__                      \
    }

constexpr Put puts[] = {
    PUT(PutLine, 0x08, (level, t.text), false, true, true, 0),
    PUT(PutWithId, 0x09, (level, t.id, t.text), false, true, true, 21),
    PUT(PutWithIdEx, 0x0A, (level, t.app, t.id, t.text), false, false, true, 21),
    PUT(PutWithMsgType, 0x20, (level, t.app, t.id, t.type, t.text), false, false, true, 16),
    PUT(PutWithIdAndTidEx, 0x23, (level, t.app, t.thread, t.id, t.text), false, false, false, 21),
    PUT(PutWithMsgTypeAndTid, 0x24, (level, t.app, t.thread, t.id, t.type, t.text), false, false, false, 16),
    PUT(PutInstanceLine, 0x15, (h, level, t.text), true, true, true, 0),
    PUT(PutInstanceWithId, 0x16, (h, level, t.id, t.text), true, true, true, 21),
    PUT(PutInstanceWithIdEx, 0x17, (h, level, t.app, t.id, t.text), true, false, true, 21),
    PUT(PutInstanceWithMsgType, 0x21, (h, level, t.app, t.id, t.type, t.text), true, false, true, 16),
};

constexpr Texts PLAIN = {"app", "tid", "id", "type", "text"};

std::string field(const char* text, size_t width)
{
    std::string field = text ? text : "";
    field.resize(width, ' ');
    return field;
}

std::string hex8(unsigned long value)
{
    char text[9];
    (void)snprintf(text, sizeof text, "%08X", static_cast<unsigned int>(value));
    return text;
}

// The line from the application name's column on.
std::string expectedLine(const Put& put, const Texts& texts, const char* logName)
{
    std::string line = field(put.ownName ? logName : texts.app, 16) + " " +
                       hex8(static_cast<unsigned long>(getpid())) + " " +
                       (put.ownThread ? hex8(pthread_self()) : field(texts.thread, 8)) + " ";
    if (put.idWidth > 0)
        line += field(texts.id, put.idWidth) + " ";
    if (put.idWidth == 16)
        line += field(texts.type, 4) + " ";
    return line + std::string(texts.text).substr(0, put.textMax());
}

std::string now()
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
    ~PutTest() override { stop(); }

    void start(const char* name = "process", const char* instanceName = "instance")
    {
        const tagZEBU_LOGFILE_SPEC other = {1000000, 1, otherPrefix.c_str()};
        ASSERT_EQ(ZEBU2_Initialize(ring(1000000, 1), name), 0);
        ASSERT_EQ(ZEBU2_CreateInstance(&hInstance, &other, instanceName), 0);
        setLevels(1000, 0, 1000);
    }
    void stop() const
    {
        (void)ZEBU2_DeleteInstance(hInstance);
        (void)ZEBU2_Finalize();
    }

    void setLevels(int log, int file, int shm) const
    {
        ZEBU2_SetLogLevel(log);
        ZEBU2_SetFileThreshold(file);
        ZEBU2_SetShmThreshold(shm);
        ZEBU2_SetInstanceLogLevel(hInstance, log);
        ZEBU2_SetInstanceFileThreshold(hInstance, file);
        ZEBU2_SetInstanceShmThreshold(hInstance, shm);
    }

    Lines linesOf(const Put& put) const
    {
        return traceLines(readFile(path(put.instance ? "inst1.log" : "app1.log")));
    }

    // Puts, and gives the line that the file got, and the trace area too.
    std::string lineOf(const Put& put, const Texts& texts) const
    {
        EXPECT_EQ(put.call(hInstance, 0, texts), 0) << put.name;
        const Lines inFile = linesOf(put), inArea = areaLines();
        return inFile.empty() || inArea.empty() || inFile.back() != inArea.back() ? std::string(68, '?')
                                                                                  : inFile.back();
    }

    const std::string otherPrefix = path("inst");
    ZEBU2_HINSTANCE hInstance = nullptr;
};

// Mode 1 alone masks the time, and that of the process log alone.
TEST_F(PutTest, EachPrintsItsColumns)
{
    const std::tuple<const char*, const char*, int> logs[] = {{"process", "instance", 2},
                                                              {"sixteen--columns", "seventeen--columns", 1},
                                                              {nullptr, nullptr, 0},
                                                              {"", "", -1}};
    std::vector<Texts> rows = {
        PLAIN,
        {"sixteen--columns", "eight--8", "twenty-one--columns-x", "four", ""},
        {"sixteen--columnsX", "eight--8X", "twenty-one--columns-xX", "fourX", "a\tb \xff%s"},
        {nullptr, nullptr, nullptr, nullptr, "null texts"}};
    std::list<std::string> longTexts;
    for (const size_t length : {4095u, 4096u, 4117u, 4118u})
        rows.push_back({"", "", "", "", longTexts.emplace_back(std::string(length - 1, 'x') + "e").c_str()});
    int count = 0;
    for (const auto& [name, instanceName, mode] : logs) {
        start(name, instanceName);
        ASSERT_EQ(ZEBU2_SetTimeStumpMode(mode), mode);
        for (const Texts& row : rows) {
            for (const Put& put : puts) {
                SCOPED_TRACE(put.name);
                const std::string before = now(), line = lineOf(put, row), time = line.substr(5, 23);
                EXPECT_EQ(line.substr(0, 5), std::to_string(10000 + count++).substr(1) + " ");
                if (mode == 1 && !put.instance && put.ownThread)
                    EXPECT_EQ(time, "****/**/** **:**:**.***");
                else
                    EXPECT_TRUE(before <= time && time <= now()) << time;
                EXPECT_EQ(line.substr(28),
                          "     " + expectedLine(put, row, put.instance ? instanceName : name));
            }
        }
        stop();
    }
}

TEST_F(PutTest, LevelAndThresholdsChooseTheDestinations)
{
    // The log level and the two thresholds, the message's level, and what gets it.
    const int cases[][6] = {
        {5, 3, 4, 2, 0, 1},          {5, 3, 4, 3, 1, 1},       {5, 3, 4, 4, 1, 1},
        {5, 3, 4, 5, 1, 0},          {5, 3, 4, 6, 0, 0},       {-1, 0, 1000, 0, 0, 0},
        {1000, -1, 1000, 500, 0, 1}, {1000, 0, -1, 500, 1, 0}, {1000, 1000, 1000, 1000, 1, 1},
        {0, 0, 0, 0, 1, 1}};
    start();
    for (const auto& [log, file, shm, level, inFile, inArea] : cases) {
        setLevels(log, file, shm);
        for (const Put& put : puts) {
            const size_t filed = linesOf(put).size() + static_cast<size_t>(inFile);
            const size_t shared = areaLines().size() + static_cast<size_t>(inArea);
            EXPECT_EQ(put.call(hInstance, level, PLAIN), 0);
            EXPECT_EQ(linesOf(put).size(), filed) << put.name << " level " << level;
            EXPECT_EQ(areaLines().size(), shared) << put.name << " level " << level;
        }
    }
    setLevels(5, 0, 5);
    EXPECT_EQ(ZEBU2_PutLine(1001, "x"), -1);
    EXPECT_EQ(ZEBU2_PutLine(6, "x") | ZEBU2_PutInstanceLine(hInstance, 6, "x"), 0);
    EXPECT_EQ(lastError(), 0x08000001) << "a filtered message leaves the error as it was";
    EXPECT_EQ(ZEBU2_PutLine(5, "x"), 0);
    EXPECT_EQ(lastError(), 0);
}

TEST_F(PutTest, CounterRunsFromZeroToNineThousandNineHundredNinetyNine)
{
    start();
    setLevels(1, -1, -1);
    EXPECT_EQ(ZEBU2_PutLine(2, "above the log level: takes no number"), 0);
    for (int i = 0; i < 9997; ++i)
        ASSERT_EQ(ZEBU2_PutLine(1, "written nowhere"), 0);
    setLevels(1000, 0, 1000);
    EXPECT_EQ(ZEBU2_PutToShm("area", 4), 0);
    EXPECT_EQ(ZEBU2_PutMsgSigSafe("signal"), 0);
    EXPECT_EQ(ZEBU2_PutInstanceLine(hInstance, 0, "instance"), 0);
    EXPECT_EQ(ZEBU2_PutLine(0, "process"), 0);
    Lines counters;
    for (const std::string& line : areaLines())
        counters.push_back(line.substr(0, 4) + " " + body(line));
    EXPECT_EQ(counters, (Lines{"9997 area", "9998 signal", "9999 instance", "0000 process"}));
}

TEST_F(PutTest, ThreadsHaveNumbersAndColumnsOfTheirOwn)
{
    start();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 400; ++i)
                ASSERT_EQ(ZEBU2_PutLine(0, hex8(pthread_self()).c_str()), 0);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::set<std::string> counters;
    for (const std::string& line : lines(1)) {
        EXPECT_EQ(line.substr(59, 9), body(line) + " ");
        counters.insert(line.substr(0, 4));
    }
    EXPECT_EQ(counters.size(), 1600u);
    EXPECT_EQ(areaLines().size(), 1600u);
}

// ---- Failures ------------------------------------------------------------------------------------

TEST_F(PutTest, ArgumentsAreCheckedBeforeTheLevel)
{
    for (const Put& put : puts) {
        EXPECT_EQ(put.call(nullptr, 1001, {}), -1);
        EXPECT_EQ(lastError(), put.function | (put.instance ? 1 : 11)) << put.name << " before the start";
    }
    start();
    setLevels(-1, 0, 0);
    ZEBU2_HINSTANCE hGone = nullptr;
    ASSERT_EQ(ZEBU2_CreateInstance(&hGone, nullptr, "gone"), 1);
    ASSERT_EQ(ZEBU2_DeleteInstance(hGone), 0);
    const struct
    {
        ZEBU2_HINSTANCE hUsed;
        int level;
        const char* text;
        int failure, ofInstance;
    } cases[] = {
        {hInstance, -1, "", 1, 1},     {hInstance, 1001, "", 1, 1}, {hInstance, -2147483647 - 1, "", 1, 1},
        {hInstance, 0, nullptr, 1, 1}, {nullptr, 0, "", 0, 1},      {hGone, 1001, "", 1, 1},
        {hGone, 0, "", 0, 11}};
    for (const Put& put : puts) {
        for (const auto& c : cases) {
            const int failure = put.instance ? c.ofInstance : c.failure;
            ZEBU2_SetLogLevel(-1); // clears the error
            EXPECT_EQ(put.call(c.hUsed, c.level, {"app", "tid", "id", "type", c.text}),
                      failure == 0 ? 0 : -1);
            EXPECT_EQ(lastError(), failure == 0 ? 0 : put.function | failure) << put.name;
            EXPECT_EQ(lastCode(), 0);
        }
    }
    EXPECT_EQ(lines(1).size() + areaLines().size(), 0u);
}

void letFilesGrow(bool grow)
{
    rlimit limit;
    CHECK(getrlimit(RLIMIT_FSIZE, &limit) == 0);
    limit.rlim_cur = grow ? limit.rlim_max : 1;
    CHECK(setrlimit(RLIMIT_FSIZE, &limit) == 0);
}

TEST_F(PutTest, EachReportsTheStateOfItsDestinations)
{
    enum { GOOD, NONE, INERT, FULL, OFF, DAMAGED, LIMITED };
    const struct
    {
        int file, area, result, failure;
        bool function; // whether the function number stands over it
        int code;
        size_t inArea;
    } cases[] = {{GOOD, NONE, 0, 11, false, 0, 0},    {GOOD, DAMAGED, -1, 26, true, 0, 0},
                 {GOOD, LIMITED, 0, 0, false, 0, 0},  {INERT, GOOD, 0, 0, false, 0, 1},
                 {NONE, GOOD, -1, 11, true, 0, 1},    {NONE, OFF, -1, 11, true, 0, 0},
                 {FULL, GOOD, -1, 4, true, EFBIG, 1}, {FULL, NONE, -1, 11, true, 0, 0},
                 {FULL, DAMAGED, -1, 26, true, 0, 0}, {OFF, NONE, 0, 11, false, 0, 0}};
    (void)signal(SIGXFSZ, SIG_IGN);
    for (const auto& c : cases) {
        std::filesystem::remove_all(path("mmap"));
        configure(c.area == NONE ? "MapSize = 20\n" : "");
        if (c.area == LIMITED)
            configure("IntervalSec = 10\nMaxMsgNum = 0\n");
        const long size = c.file == NONE ? 1 : 1000000;
        const tagZEBU_LOGFILE_SPEC other = {size, 1, otherPrefix.c_str()};
        ASSERT_GE(ZEBU2_Initialize(c.file == INERT ? nullptr : ring(size), "process"), 0);
        ASSERT_GE(ZEBU2_CreateInstance(&hInstance, c.file == INERT ? nullptr : &other, "instance"), 0);
        setLevels(1000, c.file == OFF ? -1 : 0, c.area == OFF ? -1 : 1000);
        if (c.area == DAMAGED)
            setAreaField(0, 0x12345678);
        for (const Put& put : puts) {
            SCOPED_TRACE(put.name + std::to_string(c.file) + std::to_string(c.area));
            const size_t inArea = areaLines().size() + c.inArea;
            letFilesGrow(c.file != FULL);
            const int result = put.call(hInstance, 7, PLAIN);
            letFilesGrow(true);
            EXPECT_EQ(result, c.result);
            EXPECT_EQ(lastError(), c.failure | (c.function ? put.function : 0));
            EXPECT_TRUE(c.code == 0 || lastCode() == c.code);
            EXPECT_EQ(areaLines().size(), inArea);
        }
        stop();
    }
}

TEST_F(PutTest, ToShmCopiesRawBytesAsALine)
{
    EXPECT_EQ(ZEBU2_PutToShm("early", 5), 0);
    EXPECT_EQ(lastError(), 11) << "no area is open yet";
    start();
    setLevels(-1, -1, -1);
    const std::string longText(5000, 'l');
    const struct
    {
        const char* data;
        unsigned long length;
        std::string stored;
    } cases[] = {{"ten\0by\0tes", 10, std::string("ten\0by\0tes", 10)},
                 {longText.data(), 5000, longText.substr(0, 4117)},
                 {longText.data(), 4117, longText.substr(0, 4117)},
                 {"ignored", 0, ""},
                 {nullptr, 0, ""}};
    ZEBU2_SetTimeStumpMode(1);
    for (const auto& c : cases) {
        EXPECT_EQ(ZEBU2_PutToShm(c.data, c.length), 0);
        EXPECT_EQ(lastError(), 0);
        const std::string line = areaLines().back();
        EXPECT_EQ(line.substr(33),
                  expectedLine(puts[0], {nullptr, nullptr, nullptr, nullptr, ""}, "process") + c.stored);
        EXPECT_NE(line[5], '*') << "never masked";
    }
    const std::string before = areaBytes();
    EXPECT_EQ(ZEBU2_PutToShm(nullptr, 1), -1);
    EXPECT_EQ(lastError(), 0x0D000001);
    setAreaField(0, 0x12345678);
    EXPECT_EQ(ZEBU2_PutToShm("x", 1), -1);
    EXPECT_EQ(lastError(), 0x0D00001A);
    EXPECT_EQ(areaBytes(), before);
    EXPECT_EQ(lines(1).size(), 0u);
}

} // namespace
