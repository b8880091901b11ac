// Starting and stopping: argument checks, results, error values, and what is open afterwards.
#include <thread>

#include "support/Sandbox.h"

using Lifecycle = Sandbox;

TEST_F(Lifecycle, StartsWritesAndStops)
{
    EXPECT_EQ(result(ZEBU2_FileBufferFlush()), Result(-1, 0x0B00000B));
    for (const char* pszName : {"first", "second"}) {
        EXPECT_EQ(result(ZEBU2_Finalize()), Result(-1, 0x0700000B));
        ASSERT_EQ(result(ZEBU2_Initialize(ring(), "app")), Result(0, 0));
        EXPECT_EQ(ZEBU2_PutLine(0, pszName), 0);
        EXPECT_EQ(result(ZEBU2_Initialize(ring(), "app")), Result(-1, 0x0600000B));
        EXPECT_EQ(result(ZEBU2_InitializeM(ring(), "app", 0)), Result(-1, 0x2700000B));
        EXPECT_EQ(ZEBU2_Finalize(), 0);
    }
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
    const std::string longest = longPath(path("s"), 4090), tooLong = longPath(path("s"), 4091);
    const std::string longestShared = longPath(path("m"), 4088), tooLongShared = longPath(path("m"), 4089);
    const std::string plain = prefix();
    enum { SINGLE = 1, SHARED, BOTH };
    const struct
    {
        int iKind;
        tagZEBU_LOGFILE_SPEC spec;
        int iOption;
        int iFailure;
    } cases[] = {
        {BOTH, {4095, 3, plain.c_str()}, 0, 1},
        {BOTH, {4096, 0, plain.c_str()}, 0, 1},
        {BOTH, {4096, -1, plain.c_str()}, 0, 1},
        {BOTH, {4096, 3, nullptr}, 0, 1},
        {SINGLE, {4096, 1, longest.c_str()}, 0, 0},
        {SINGLE, {2147483647, 16, plain.c_str()}, 0, 0},
        {SINGLE, {2147483648, 16, plain.c_str()}, 0, 1},
        {SINGLE, {4096, 17, plain.c_str()}, 0, 1},
        {SINGLE, {4096, 1, tooLong.c_str()}, 0, 1},
        {SHARED, {4096, 1, longestShared.c_str()}, 0, 2}, // its management file has too long a name
        {SHARED, {16777217, 1, plain.c_str()}, 0, 1},
        {SHARED, {4096, 65, plain.c_str()}, 0, 1},
        {SHARED, {4096, 1, tooLongShared.c_str()}, 0, 1},
        {SHARED, {4096, 1, plain.c_str()}, 64, 1},
        {SHARED, {4096, 1, plain.c_str()}, -1, 1},
    };
    for (const auto& c : cases) {
        for (const int iKind : {SINGLE, SHARED}) {
            if (!(c.iKind & iKind))
                continue;
            SCOPED_TRACE(testing::Message() << "kind " << iKind << ", case " << &c - cases);
            const int iResult = iKind == SINGLE ? ZEBU2_Initialize(&c.spec, "app")
                                                : ZEBU2_InitializeM(&c.spec, "app", c.iOption);
            const int iFunction = iKind == SINGLE ? 0x06000000 : 0x27000000;
            EXPECT_EQ(result(iResult), c.iFailure ? Result(1, iFunction | c.iFailure) : Result(0, 0));
            EXPECT_EQ(lastCode(), c.iFailure == 2 ? ENAMETOOLONG : 0);
            EXPECT_EQ(ZEBU2_Finalize(), 0);
        }
    }
}

// What the puts then do is the business of their own tests.
TEST_F(Lifecycle, GoesWithoutWhatCannotBeOpened)
{
    ASSERT_EQ(result(ZEBU2_Initialize(nullptr, "app")), Result(1, 0x06000000));
    EXPECT_EQ(ZEBU2_FileBufferFlush(), 0);
    EXPECT_EQ(ZEBU2_TraceBackup(path("copy").c_str()), 0);
    EXPECT_FALSE(exists(path("copy")));
    EXPECT_EQ(ZEBU2_Finalize(), 0);

    ASSERT_EQ(rename(path("mmap").c_str(), path("aside").c_str()), 0);
    writeFile(path("mmap"), "in the way");
    ASSERT_EQ(result(ZEBU2_Initialize(ring(), "app")), Result(2, 2)); // the area's failure, without function
    EXPECT_EQ(lastCode(), ENOTDIR);
    EXPECT_EQ(result(ZEBU2_PutToShm("x", 1)), Result(0, 11));
    EXPECT_EQ(ZEBU2_Finalize(), 0);

    EXPECT_EQ(result(ZEBU2_InitializeM(ring(4095), "app", 0)), Result(-1, 0x27000002));
    EXPECT_EQ(result(ZEBU2_Initialize(ring(4095), "app")), Result(-1, 0x06000002));
    EXPECT_EQ(result(ZEBU2_PutLine(0, "nothing is kept")), Result(-1, 0x0800000B));
}

TEST_F(Lifecycle, ErrorsBelongToTheirThread)
{
    int iCode = 77;
    EXPECT_EQ(ZEBU2_GetLastError(&iCode), 16); // no call has needed a context yet
    EXPECT_EQ(iCode, 77);
    EXPECT_EQ(result(ZEBU2_SetLogLevel(1001)), Result(0, 0x02000001));
    std::thread([] {
        EXPECT_EQ(lastError(), 16);
        EXPECT_EQ(result(ZEBU2_SetShmThreshold(-2)), Result(0, 0x05000001));
    }).join();
    EXPECT_EQ(ZEBU2_GetLastError(&iCode), 0x02000001);
    EXPECT_EQ(iCode, 0);
    EXPECT_EQ(lastError(), 0x02000001); // reading changes nothing
    EXPECT_EQ(result(ZEBU2_SetLogLevel(0)), Result(0, 0));
    EXPECT_EQ(result(ZEBU2_EndLibrary()), Result(0, 16));
    EXPECT_EQ(ZEBU2_PutToShm("x", 1), -1); // a late call is harmless
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
