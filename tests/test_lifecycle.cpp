// Starting and stopping: argument checks, results, error values, and what is open afterwards.
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <thread>

#include "support/Sandbox.h"

using Lifecycle = Sandbox;

TEST_F(Lifecycle, StartsWritesAndStops)
{
    ASSERT_EQ(ZEBU2_Initialize(ring(), "app"), 0);
    EXPECT_EQ(lastError(), 0);
    EXPECT_EQ(ZEBU2_PutLine(0, "first"), 0);
    EXPECT_EQ(ZEBU2_Initialize(ring(), "app"), -1);
    EXPECT_EQ(lastError(), 0x0600000B);
    EXPECT_EQ(ZEBU2_InitializeM(ring(), "app", 0), -1);
    EXPECT_EQ(lastError(), 0x2700000B);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_EQ(ZEBU2_Finalize(), -1);
    EXPECT_EQ(lastError(), 0x0700000B);
    ASSERT_EQ(ZEBU2_Initialize(ring(), "again"), 0);
    EXPECT_EQ(ZEBU2_PutLine(0, "second"), 0);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_EQ(ZEBU2_EndLibrary(), 0);
    EXPECT_EQ(bodies(lines(1)), (Lines{"first", "second"}));
    EXPECT_EQ(bodies(areaLines()), (Lines{"first", "second"}));
}

// A path of exactly `length` characters that exists as far as its last "/".
static std::string longPath(const std::string& start, size_t length)
{
    std::string path = start;
    while (path.size() + 201 < length)
        path += "/" + std::string(199, 'd');
    return path + "/" + std::string(length - path.size() - 1, 'f');
}

TEST_F(Lifecycle, ChecksTheDescription)
{
    const std::string single = longPath(path("s"), 4090), tooLong = longPath(path("s"), 4091);
    const std::string shared = longPath(path("m"), 4088), tooLongShared = longPath(path("m"), 4089);
    const std::string plain = prefix();
    enum { SINGLE, SHARED, BOTH };
    const struct
    {
        int iKind;
        tagZEBU_LOGFILE_SPEC spec;
        int iOption;
        bool bAccepted;
    } cases[] = {
        {BOTH, {4095, 3, plain.c_str()}, 0, false},
        {BOTH, {LONG_MIN, 3, plain.c_str()}, 0, false},
        {BOTH, {4096, 0, plain.c_str()}, 0, false},
        {BOTH, {4096, -1, plain.c_str()}, 0, false},
        {BOTH, {4096, 3, nullptr}, 0, false},
        {SINGLE, {4096, 1, plain.c_str()}, 0, true},
        {SINGLE, {2147483647, 16, plain.c_str()}, 0, true},
        {SINGLE, {2147483648, 16, plain.c_str()}, 0, false},
        {SINGLE, {4096, 17, plain.c_str()}, 0, false},
        {SINGLE, {4096, 1, tooLong.c_str()}, 0, false},
        {SHARED, {16777217, 1, plain.c_str()}, 0, false},
        {SHARED, {4096, 65, plain.c_str()}, 0, false},
        {SHARED, {4096, 1, tooLongShared.c_str()}, 0, false},
        {SHARED, {4096, 1, plain.c_str()}, 64, false},
        {SHARED, {4096, 1, plain.c_str()}, -1, false},
    };
    for (const auto& c : cases) {
        for (const bool bShared : {false, true}) {
            if (c.iKind != BOTH && bShared != (c.iKind == SHARED))
                continue;
            SCOPED_TRACE(testing::Message() << (bShared ? "shared, case " : "single, case ") << &c - cases);
            const int iResult =
                bShared ? ZEBU2_InitializeM(&c.spec, "app", c.iOption) : ZEBU2_Initialize(&c.spec, "app");
            EXPECT_EQ(iResult, c.bAccepted ? 0 : 1);
            EXPECT_EQ(lastError(), c.bAccepted ? 0 : bShared ? 0x27000001 : 0x06000001);
            EXPECT_EQ(lastCode(), 0);
            EXPECT_EQ(ZEBU2_Finalize(), 0);
        }
    }
    // The longest paths pass the check; whether the kernel takes the names is another matter.
    const tagZEBU_LOGFILE_SPEC longest = {4096, 1, single.c_str()}, longestShared = {4096, 1, shared.c_str()};
    EXPECT_NE(ZEBU2_Initialize(&longest, "app") * 1 + lastError(), 1 + 0x06000001);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_NE(ZEBU2_InitializeM(&longestShared, "app", 0) * 1 + lastError(), 1 + 0x27000001);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
}

TEST_F(Lifecycle, WithoutFilesLinesReachTheAreaAlone)
{
    ASSERT_EQ(ZEBU2_Initialize(nullptr, "app"), 1);
    EXPECT_EQ(lastError(), 0x06000000);
    EXPECT_EQ(ZEBU2_PutLine(0, "inert"), 0);
    EXPECT_EQ(ZEBU2_FileBufferFlush(), 0);
    EXPECT_EQ(ZEBU2_TraceBackup(path("copy").c_str()), 0);
    EXPECT_FALSE(exists(path("copy")));
    EXPECT_EQ(ZEBU2_Finalize(), 0);

    ASSERT_EQ(ZEBU2_Initialize(ring(4095), "app"), 1);
    EXPECT_EQ(ZEBU2_PutLine(0, "no engine"), -1);
    EXPECT_EQ(lastError(), 0x0800000B);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_FALSE(exists(traceFile(1)));
    EXPECT_EQ(bodies(areaLines()), (Lines{"inert", "no engine"}));
}

TEST_F(Lifecycle, WithoutTheAreaLinesReachTheFilesAlone)
{
    writeFile(path("mmap"), "in the way");
    ASSERT_EQ(ZEBU2_Initialize(ring(), "app"), 2);
    EXPECT_EQ(lastError(), 2);  // the area's failure, with function number 0
    EXPECT_EQ(lastCode(), ENOTDIR);
    EXPECT_EQ(ZEBU2_PutLine(0, "file"), 0);
    EXPECT_EQ(lastError(), 11);
    EXPECT_EQ(ZEBU2_PutToShm("x", 1), 0);
    EXPECT_EQ(lastError(), 11);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_EQ(bodies(lines(1)), Lines{"file"});

    ASSERT_EQ(ZEBU2_Initialize(ring(4095), "app"), -1);
    EXPECT_EQ(lastError(), 0x06000002);
    EXPECT_EQ(ZEBU2_PutLine(0, "nothing is kept"), -1);
    EXPECT_EQ(lastError(), 0x0800000B);
    ASSERT_EQ(ZEBU2_InitializeM(ring(4095), "app", 0), -1);
    EXPECT_EQ(lastError(), 0x27000002);
}

TEST_F(Lifecycle, FailedOpenLeavesNothingBehind)
{
    ASSERT_EQ(mkdir(traceFile(1).c_str(), 0777), 0);
    const int iLowest = dup(0);
    (void)close(iLowest);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(ZEBU2_Initialize(ring(), "app"), 1);
        EXPECT_EQ(lastError(), 0x06000002);
        EXPECT_EQ(lastCode(), EISDIR);
        EXPECT_EQ(ZEBU2_Finalize(), 0);
    }
    const int iNow = dup(0);
    EXPECT_EQ(iNow, iLowest);
}

TEST_F(Lifecycle, ErrorsBelongToTheirThread)
{
    EXPECT_EQ(lastError(), 16);  // no call has needed a context yet
    int iCode = 77;
    EXPECT_EQ(ZEBU2_GetLastError(&iCode), 16);
    EXPECT_EQ(iCode, 77);
    EXPECT_EQ(ZEBU2_SetLogLevel(1001), 0);
    EXPECT_EQ(lastError(), 0x02000001);
    std::thread([] {
        EXPECT_EQ(lastError(), 16);
        EXPECT_EQ(ZEBU2_SetShmThreshold(-2), 0);
        EXPECT_EQ(lastError(), 0x05000001);
    }).join();
    EXPECT_EQ(ZEBU2_GetLastError(&iCode), 0x02000001);
    EXPECT_EQ(iCode, 0);
    EXPECT_EQ(lastError(), 0x02000001);  // reading changes nothing
    EXPECT_EQ(ZEBU2_SetLogLevel(0), 0);
    EXPECT_EQ(lastError(), 0);
    EXPECT_EQ(ZEBU2_EndLibrary(), 0);
    EXPECT_EQ(lastError(), 16);  // a late call is harmless
    EXPECT_EQ(ZEBU2_PutToShm("x", 1), -1);
}

TEST_F(Lifecycle, VersionAndForkHandlers)
{
    EXPECT_STREQ(ZEBU2_version_string,
                 "$Version: Kelvora Dacy Trace Library 2. 03-16.     Last Update: May 18 2007 $");
    ZEBU2_PreForkHandler();
    ZEBU2_PostForkHandlerForParent();
    ZEBU2_PostForkHandlerForChild();
    EXPECT_EQ(lastError(), 16);
}
