// The put operations: columns and limits of the line, levels and thresholds, destinations and failures.
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <thread>

#include "support/Puts.h"
#include "support/Sandbox.h"

// A process log and an instance, each with a ring of its own, that write everything.
class PutTest : public Sandbox
{
protected:
    PutTest() { configure("MapSize = 400000\n"); }
    ~PutTest() override
    {
        (void)ZEBU2_DeleteInstance(hInstance);
        (void)ZEBU2_Finalize();
    }

    void start(const char* pszName = "process", const char* pszInstanceName = "instance")
    {
        const std::string other = path("inst");
        const tagZEBU_LOGFILE_SPEC otherRing = {1000000, 1, other.c_str()};
        ASSERT_EQ(ZEBU2_Initialize(ring(1000000, 1), pszName), 0);
        ASSERT_EQ(ZEBU2_CreateInstance(&hInstance, &otherRing, pszInstanceName), 0);
        setLevels(1000, 0, 1000);
    }

    void setLevels(int iLog, int iFile, int iShm)
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
        return put.bInstance ? traceLines(readFile(path("inst1.log"))) : lines(1);
    }

    // The line that a put has just added to its file, which the trace area got too.
    std::string lastLine(const Put& put) const
    {
        const Lines inFile = linesOf(put), inArea = areaLines();
        if (inFile.empty() || inArea.empty() || inFile.back() != inArea.back())
            return "file and area differ";
        return inFile.back();
    }

    ZEBU2_HINSTANCE hInstance = nullptr;
};

static const Texts cs_plainTexts = {"app", "tid", "id", "type", "text"};

static std::string field(const char* pszText, size_t uWidth)
{
    std::string text = pszText ? pszText : "";
    text.resize(uWidth, ' ');
    return text;
}

static std::string hex8(unsigned long ulValue)
{
    char szText[9];
    (void)snprintf(szText, sizeof szText, "%08X", static_cast<unsigned int>(ulValue));
    return szText;
}

// The line from the application name's column on.
static std::string expectedLine(const Put& put, const Texts& texts, const char* pszLogName)
{
    const std::string thread = put.bOwnThread ? hex8(pthread_self()) : field(texts.pszThread, 8);
    std::string line = field(put.bOwnName ? pszLogName : texts.pszApp, 16) + " " +
                       hex8(static_cast<unsigned long>(getpid())) + " " + thread + " ";
    if (put.uIdWidth > 0)
        line += field(texts.pszId, put.uIdWidth) + " ";
    if (put.uIdWidth == 16)
        line += field(texts.pszType, 4) + " ";
    return line + std::string(texts.pszText).substr(0, put.textMax());
}

static std::string now()
{
    timeval time;
    gettimeofday(&time, nullptr);
    tm local;
    localtime_r(&time.tv_sec, &local);
    char szSecond[32], szTime[40];
    (void)strftime(szSecond, sizeof szSecond, "%Y/%m/%d %H:%M:%S", &local);
    (void)snprintf(szTime, sizeof szTime, "%s.%03d", szSecond, static_cast<int>(time.tv_usec / 1000));
    return szTime;
}

TEST_F(PutTest, EachPrintsItsColumns)
{
    const char* const names[][2] = {
        {"process", "instance"}, {"sixteen--columns", "seventeen--columns"}, {nullptr, nullptr}};
    const Texts allTexts[] = {
        cs_plainTexts,
        {"sixteen--columns", "eight--8", "twenty-one--columns-x", "four", ""},
        {"sixteen--columnsX", "eight--8X", "twenty-one--columns-xX", "fourX", "a\tb \xff%s"},
        {nullptr, nullptr, nullptr, nullptr, "null texts"},
        {"", "", "", "", "empty texts"},
    };
    int iCount = 0;
    for (const auto& name : names) {
        start(name[0], name[1]);
        for (const Texts& texts : allTexts) {
            for (const Put& put : cs_puts) {
                SCOPED_TRACE(put.pszName);
                const std::string before = now();
                ASSERT_EQ(put.call(hInstance, 0, texts), 0);
                const std::string line = lastLine(put);
                ASSERT_GE(line.size(), 68u);
                EXPECT_EQ(line.substr(0, 5), std::to_string(10000 + iCount++).substr(1) + " ");
                EXPECT_LE(before, line.substr(5, 23));
                EXPECT_LE(line.substr(5, 23), now());
                EXPECT_EQ(line.substr(28, 5), "     ");
                EXPECT_EQ(line.substr(33), expectedLine(put, texts, name[put.bInstance ? 1 : 0]));
            }
        }
        ASSERT_EQ(ZEBU2_DeleteInstance(hInstance), 0);
        ASSERT_EQ(ZEBU2_Finalize(), 0);
    }
}

TEST_F(PutTest, OnlyModeOneMasksTheTimeOfTheProcessLog)
{
    start();
    for (const int iMode : {1, 0, 2, -1}) {
        ASSERT_EQ(ZEBU2_SetTimeStumpMode(iMode), iMode);
        for (const Put& put : cs_puts) {
            ASSERT_EQ(put.call(hInstance, 0, cs_plainTexts), 0);
            const bool bMasked = lastLine(put).substr(4, 25) == " ****/**/** **:**:**.*** ";
            EXPECT_EQ(bMasked, iMode == 1 && put.masksTime()) << put.pszName << " in mode " << iMode;
        }
    }
}

TEST_F(PutTest, LongTextsAreCut)
{
    start();
    for (const size_t uLength : {4094u, 4095u, 4096u, 4116u, 4117u, 4118u, 5000u}) {
        std::string text(uLength, 'x');
        text.back() = 'e';
        for (const Put& put : cs_puts) {
            ASSERT_EQ(put.call(hInstance, 0, {"app", "tid", "id", "type", text.c_str()}), 0);
            EXPECT_EQ(lastLine(put).substr(put.uIdWidth == 0 ? 68 : 90), text.substr(0, put.textMax()))
                << put.pszName << ' ' << uLength;
        }
    }
}

TEST_F(PutTest, LevelAndThresholdsChooseTheDestinations)
{
    const struct
    {
        int iLog, iFile, iShm, iLevel;
        size_t uInFile, uInArea;
    } cases[] = {
        {5, 3, 4, 0, 0, 1},
        {5, 3, 4, 2, 0, 1},
        {5, 3, 4, 3, 1, 1},
        {5, 3, 4, 4, 1, 1},
        {5, 3, 4, 5, 1, 0},
        {5, 3, 4, 6, 0, 0},
        {-1, 0, 1000, 0, 0, 0},
        {1000, -1, -1, 500, 0, 0},
        {1000, -1, 1000, 500, 0, 1},
        {1000, 0, -1, 500, 1, 0},
        {1000, 1000, 1000, 1000, 1, 1},
        {1000, 1000, 0, 999, 0, 0},
        {0, 0, 0, 0, 1, 1},
    };
    start();
    for (const auto& c : cases) {
        setLevels(c.iLog, c.iFile, c.iShm);
        for (const Put& put : cs_puts) {
            const size_t uInFile = linesOf(put).size(), uInArea = areaLines().size();
            EXPECT_EQ(put.call(hInstance, c.iLevel, cs_plainTexts), 0);
            EXPECT_EQ(linesOf(put).size() - uInFile, c.uInFile) << put.pszName << " level " << c.iLevel;
            EXPECT_EQ(areaLines().size() - uInArea, c.uInArea) << put.pszName << " level " << c.iLevel;
        }
    }
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

TEST_F(PutTest, ThreadsKeepTheirLinesWhole)
{
    constexpr int iThreads = 4, iPuts = 400;
    start();
    auto write = [](int iThread) {
        const std::string id = hex8(pthread_self()) + "/" + std::to_string(iThread);
        for (int i = 0; i < iPuts; ++i)
            ASSERT_EQ(ZEBU2_PutWithId(0, id.c_str(), (std::to_string(i) + std::string(50, '.')).c_str()), 0);
    };
    std::thread threads[iThreads];
    for (int i = 0; i < iThreads; ++i)
        threads[i] = std::thread(write, i);
    for (std::thread& thread : threads)
        thread.join();

    Lines counters;
    int iNext[iThreads] = {};
    for (const std::string& line : lines(1)) {
        ASSERT_EQ(line.substr(59, 9), line.substr(68, 8) + " ");
        const int iThread = line[77] - '0';
        EXPECT_EQ(line.substr(90), std::to_string(iNext[iThread]++) + std::string(50, '.'));
        counters.push_back(line.substr(0, 4));
    }
    std::sort(counters.begin(), counters.end());
    EXPECT_EQ(std::unique(counters.begin(), counters.end()), counters.end());
    EXPECT_EQ(counters.size(), size_t{iThreads * iPuts});
    EXPECT_EQ(areaLines().size(), size_t{iThreads * iPuts});
}

// ---- Failures ------------------------------------------------------------------------------------

TEST_F(PutTest, ArgumentsAreCheckedBeforeTheLevel)
{
    for (const Put& put : cs_puts) {
        EXPECT_EQ(put.call(nullptr, 1001, {}), -1);
        EXPECT_EQ(lastError(), put.iFunction | (put.bInstance ? 1 : 11))
            << put.pszName << " before the start";
    }
    start();
    setLevels(-1, 0, 0);
    ZEBU2_HINSTANCE hGone = hInstance;
    ASSERT_EQ(ZEBU2_CreateInstance(&hGone, nullptr, "gone"), 1);
    ASSERT_EQ(ZEBU2_DeleteInstance(hGone), 0);
    const Texts noText = {"app", "tid", "id", "type", nullptr};
    for (const Put& put : cs_puts) {
        const struct
        {
            ZEBU2_HINSTANCE hUsed;
            int iLevel;
            const Texts& texts;
            int iFailure;
        } cases[] = {
            {hInstance, -1, cs_plainTexts, 1},
            {hInstance, 1001, cs_plainTexts, 1},
            {hInstance, -2147483647 - 1, cs_plainTexts, 1},
            {hInstance, 0, noText, 1},
            {nullptr, 0, cs_plainTexts, put.bInstance ? 1 : 0},
            {hGone, 1001, cs_plainTexts, 1},
            {hGone, 0, cs_plainTexts, put.bInstance ? 11 : 0},
        };
        for (const auto& c : cases) {
            ZEBU2_SetLogLevel(-1); // clears the error
            EXPECT_EQ(put.call(c.hUsed, c.iLevel, c.texts), c.iFailure == 0 ? 0 : -1);
            EXPECT_EQ(lastError(), c.iFailure == 0 ? 0 : put.iFunction | c.iFailure) << put.pszName;
            EXPECT_EQ(lastCode(), 0);
        }
    }
    EXPECT_EQ(lines(1).size() + areaLines().size(), 0u);
}

TEST_F(PutTest, FilteredMessageLeavesTheErrorAsItWas)
{
    start();
    setLevels(5, 0, 5);
    EXPECT_EQ(ZEBU2_PutLine(1001, "x"), -1);
    EXPECT_EQ(ZEBU2_PutLine(6, "x"), 0);
    EXPECT_EQ(ZEBU2_PutInstanceLine(hInstance, 6, "x"), 0);
    EXPECT_EQ(lastError(), 0x08000001);
    EXPECT_EQ(ZEBU2_PutLine(5, "x"), 0);
    EXPECT_EQ(lastError(), 0);
}

// For its lifetime no file of this process can grow, so that every write to one fails.
class NoGrowth
{
public:
    explicit NoGrowth(bool bApply) : m_apply(bApply)
    {
        if (!m_apply)
            return;
        (void)signal(SIGXFSZ, SIG_IGN);
        CHECK(getrlimit(RLIMIT_FSIZE, &m_limit) == 0);
        const rlimit none = {1, m_limit.rlim_max};
        CHECK(setrlimit(RLIMIT_FSIZE, &none) == 0);
    }
    ~NoGrowth()
    {
        if (m_apply)
            CHECK(setrlimit(RLIMIT_FSIZE, &m_limit) == 0);
    }
    NoGrowth(const NoGrowth&) = delete;
    NoGrowth& operator=(const NoGrowth&) = delete;

private:
    const bool m_apply;
    rlimit m_limit = {};
};

enum class File { GOOD, NONE, INERT, FULL, OFF };
enum class Area { GOOD, NONE, DAMAGED, LIMITED, OFF };

// What one put leaves when its two destinations are in these states.
struct Outcome
{
    const char* pszName;
    File file;
    Area area;
    int iResult;
    int iFailure;
    bool bFunction; // whether the function number stands over it
    int iCode;
    bool bInArea;
};

static void PrintTo(const Outcome& outcome, std::ostream* pStream)
{
    *pStream << outcome.pszName;
}

static std::string nameOf(const ::testing::TestParamInfo<Outcome>& outcome)
{
    return outcome.param.pszName;
}

class PutOutcome : public PutTest, public ::testing::WithParamInterface<Outcome>
{
};

TEST_P(PutOutcome, IsReportedByEveryPut)
{
    const Outcome& outcome = GetParam();
    configure(outcome.area == Area::NONE      ? "MapSize = 20\n"
              : outcome.area == Area::LIMITED ? "IntervalSec = 10\nMaxMsgNum = 0\n"
                                              : "");
    const std::string other = path("inst");
    const tagZEBU_LOGFILE_SPEC good = {1000000, 1, other.c_str()}, bad = {1, 1, other.c_str()};
    const bool bNoFile = outcome.file == File::NONE, bInert = outcome.file == File::INERT;
    ASSERT_GE(ZEBU2_Initialize(bInert ? nullptr : bNoFile ? &bad : ring(), "process"), 0);
    ASSERT_GE(ZEBU2_CreateInstance(&hInstance, bInert ? nullptr : bNoFile ? &bad : &good, "instance"), 0);
    setLevels(1000, outcome.file == File::OFF ? -1 : 0, outcome.area == Area::OFF ? -1 : 1000);
    if (outcome.area == Area::DAMAGED)
        setAreaField(0, 0x12345678);

    for (const Put& put : cs_puts) {
        const size_t uInArea = areaLines().size();
        {
            const NoGrowth limit(outcome.file == File::FULL);
            EXPECT_EQ(put.call(hInstance, 7, cs_plainTexts), outcome.iResult);
            EXPECT_EQ(lastError(), outcome.iFailure | (outcome.bFunction ? put.iFunction : 0));
        }
        if (outcome.iCode != 0) {
            EXPECT_EQ(lastCode(), outcome.iCode);
        }
        EXPECT_EQ(areaLines().size() - uInArea, outcome.bInArea ? 1u : 0u) << put.pszName;
    }
}

INSTANTIATE_TEST_SUITE_P(
    States, PutOutcome,
    ::testing::Values(Outcome{"AreaMissing", File::GOOD, Area::NONE, 0, 11, false, 0, false},
                      Outcome{"AreaDamaged", File::GOOD, Area::DAMAGED, -1, 26, true, 0, false},
                      Outcome{"AreaLimited", File::GOOD, Area::LIMITED, 0, 0, false, 0, false},
                      Outcome{"FilesInert", File::INERT, Area::GOOD, 0, 0, false, 0, true},
                      Outcome{"FilesMissing", File::NONE, Area::GOOD, -1, 11, true, 0, true},
                      Outcome{"FilesMissingAreaOff", File::NONE, Area::OFF, -1, 11, true, 0, false},
                      Outcome{"FileFull", File::FULL, Area::GOOD, -1, 4, true, EFBIG, true},
                      Outcome{"FileFullAreaMissing", File::FULL, Area::NONE, -1, 11, true, 0, false},
                      Outcome{"FileFullAreaDamaged", File::FULL, Area::DAMAGED, -1, 26, true, 0, false},
                      Outcome{"FileOffAreaMissing", File::OFF, Area::NONE, 0, 11, false, 0, false}),
    nameOf);

// ---- Raw bytes -----------------------------------------------------------------------------------

TEST_F(PutTest, ToShmCopiesRawBytesAsALine)
{
    EXPECT_EQ(ZEBU2_PutToShm("early", 5), 0);
    EXPECT_EQ(lastError(), 11) << "no area is open yet";
    start();
    setLevels(-1, -1, -1);
    const std::string nuls("ten\0by\0tes", 10), longText(5000, 'l');
    const struct
    {
        const char* pData;
        unsigned long ulLength;
        std::string stored;
    } cases[] = {
        {nuls.data(), 10, nuls},
        {longText.data(), 5000, longText.substr(0, 4117)},
        {longText.data(), 4117, longText.substr(0, 4117)},
        {"ignored", 0, ""},
        {nullptr, 0, ""},
    };
    ZEBU2_SetTimeStumpMode(1);
    for (const auto& c : cases) {
        EXPECT_EQ(ZEBU2_PutToShm(c.pData, c.ulLength), 0);
        EXPECT_EQ(lastError(), 0);
        const std::string line = areaLines().back();
        EXPECT_EQ(line.substr(33), field("process", 16) + " " + hex8(static_cast<unsigned long>(getpid())) +
                                       " " + hex8(pthread_self()) + " " + c.stored);
        EXPECT_NE(line[5], '*') << "never masked";
    }
    const size_t uBytes = areaBytes().size();
    EXPECT_EQ(ZEBU2_PutToShm(nullptr, 1), -1);
    EXPECT_EQ(lastError(), 0x0D000001);
    setAreaField(0, 0x12345678);
    EXPECT_EQ(ZEBU2_PutToShm("x", 1), -1);
    EXPECT_EQ(lastError(), 0x0D00001A);
    EXPECT_EQ(areaBytes().size(), uBytes);
    EXPECT_EQ(lines(1).size(), 0u);
}
