// Starting and stopping: argument checks, results, error values, and what is open afterwards.

#include "support/Sandbox.h"

using Lifecycle = Sandbox;

TEST_F(Lifecycle, StartsWritesAndStops)
{
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(result(ZEBU2_FileBufferFlush()), Result(-1, 0x0B00000B));
        EXPECT_EQ(result(ZEBU2_Finalize()), Result(-1, 0x0700000B));
        EXPECT_EQ(result(ZEBU2_Initialize(ring(), "app")), Result(0, 0));
        // The second line comes when the thread's context is gone already.
        pthread_key_t late;
        ASSERT_EQ(pthread_key_create(&late, [](void*) { putLine("late"); }), 0);
        std::thread([&] {
            putLine("line");
            EXPECT_EQ(pthread_setspecific(late, &late), 0);
        }).join();
        putLine("last");
        EXPECT_EQ(result(ZEBU2_Initialize(ring(), "app")), Result(-1, 0x0600000B));
        EXPECT_EQ(result(ZEBU2_InitializeM(ring(), "app", 0)), Result(-1, 0x2700000B));
        EXPECT_EQ(result(ZEBU2_Finalize()), Result(0, 0));
    }
    EXPECT_EQ(ZEBU2_EndLibrary(), 0);
    EXPECT_EQ(bodies(lines(1)), (Lines{"line", "late", "last", "line", "late", "last"}));
    EXPECT_EQ(bodies(areaLines()), bodies(lines(1)));
}

TEST_F(Lifecycle, ChecksTheDescription)
{
    const auto longPath = [&](size_t u) { return path(std::string(u - path("").size() - 1, '/')) + "p"; };
    // The description, the options, and the failures of a ring of one process and of a shared one.
    const std::tuple<long, long, std::string, int, int, int> cases[] = {
        {4095, 3, prefix(), 0, 1, 1},
        {4096, 0, prefix(), 0, 1, 1},
        {4096, 17, prefix(), 0, 1, 0},
        {4096, 65, prefix(), 0, 1, 1},
        {16777217, 1, prefix(), 0, 0, 1},
        {2147483648, 1, prefix(), 0, 1, 1},
        {4096, 3, prefix(), 64, 0, 1},
        {4096, 1, longPath(4090), 0, 0, 1},
        {4096, 1, longPath(4091), 0, 1, 1},
        {4096, 1, longPath(4088), 0, 0, 2}, // its management file has too long a name
    };
    for (const auto& [lSize, lCount, path, iOption, iSingle, iShared] : cases) {
        SCOPED_TRACE(std::to_string(lSize) + " " + std::to_string(lCount) + " " + path);
        tagZEBU_LOGFILE_SPEC spec = {lSize, lCount, path.c_str()};
        EXPECT_EQ(result(ZEBU2_Initialize(&spec, "app")),
                  iSingle ? Result(1, 0x06000000 | iSingle) : Result(0, 0));
        stop();
        const std::string other = path.substr(0, path.size() - 1) + "S";
        spec.pszFilePath = other.c_str();
        EXPECT_EQ(result(ZEBU2_InitializeM(&spec, "app", iOption)),
                  iShared ? Result(1, 0x27000000 | iShared) : Result(0, 0));
        stop();
    }
    const tagZEBU_LOGFILE_SPEC spec = {4096, 3, nullptr};
    EXPECT_EQ(result(ZEBU2_Initialize(&spec, "app")), Result(1, 0x06000001));
}

// What the puts then do is the business of their own tests.
TEST_F(Lifecycle, GoesWithoutWhatCannotBeOpened)
{
    startArea();
    putLine("area alone");
    EXPECT_EQ(ZEBU2_FileBufferFlush() | ZEBU2_TraceBackup(path("copy").c_str()), 0);
    EXPECT_FALSE(exists(path("copy")));
    stop();
    ASSERT_EQ(ZEBU2_InitializeM(ring(4096, 3, "shared/app"), "app", 0), 0);
    stop();

    std::filesystem::remove_all(path("shared/mmap"));
    std::filesystem::remove_all(path("mmap"));
    writeFile(path("mmap"), "in the way");
    EXPECT_EQ(result(ZEBU2_InitializeM(ring(4096, 3, "shared/app"), "app", 0)), Result(2, 0x27000002));
    stop(); // it was rebuilt
    EXPECT_EQ(result(ZEBU2_InitializeM(ring(4095), "app", 0)), Result(-1, 0x27000002));
    EXPECT_EQ(result(ZEBU2_Initialize(ring(4095), "app")), Result(-1, 0x06000002));
    EXPECT_EQ(result(ZEBU2_PutLine(0, "nothing is kept")), Result(-1, 0x0800000B));
}

TEST_F(Lifecycle, ErrorsBelongToTheirThread)
{
    EXPECT_EQ(failure(0), Failure()); // the first call of all
    EXPECT_EQ(result(ZEBU2_SetLogLevel(1001)), Result(0, 0x02000001));
    std::thread([] {
        EXPECT_EQ(lastError(), 0);
        EXPECT_EQ(result(ZEBU2_SetShmThreshold(-2)), Result(0, 0x05000001));
    }).join();
    EXPECT_EQ(lastError(), 0x02000001);
    EXPECT_EQ(result(ZEBU2_SetLogLevel(0)), Result(0, 0));
    int iCode = 77;
    EXPECT_EQ(ZEBU2_EndLibrary(), 0);
    EXPECT_TRUE(ZEBU2_GetLastError(&iCode) == 16 && iCode == 77);
    EXPECT_EQ(ZEBU2_PutToShm("x", 1), -1); // a late call is harmless
}
