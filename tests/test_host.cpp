// What a host does to the library it loads: threads that do everything at once, forks in the middle of it,
// disks that are full.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "support/PrivateOpt.h"
#include "support/Sandbox.h"

// ---- Threads and forks ---------------------------------------------------------------------------

class Host : public Sandbox
{
protected:
    void start()
    {
        ASSERT_GE(ZEBU2_SetInstanceLockRetryTimes(nullptr, 20'000), 0); // 1 ms each: no put gives up
        ASSERT_EQ(ZEBU2_Initialize(ring(4 << 20, 16), "host"), 0);
        ASSERT_EQ(ZEBU2_CreateInstanceM(&m_shared, ring(1 << 20, 16, "shared"), "host", ZEBU2_OPT_NOFILL), 0);
        ZEBU2_SetShmThreshold(ZEBU2_LEVEL_OFF); // the area is the children's
        ASSERT_EQ(ZEBU2_SetInstanceShmThreshold(m_shared, ZEBU2_LEVEL_OFF), 0);
    }
    // Every put succeeded, and every line is there once: those of the threads, and in the shared ring
    // `iChildren` more.
    void finish(int iChildren = 0)
    {
        for (std::thread& thread : m_threads)
            thread.join();
        EXPECT_EQ(m_iPut, m_iTried);
        EXPECT_EQ(m_iShared, m_iTried);
        EXPECT_EQ(ZEBU2_TraceBackup(path("backup").c_str()), 0);
        expectOnce(traceLines(readFile(path("backup"))), m_iTried);
        EXPECT_EQ(ZEBU2_InstanceTraceBackupM(m_shared, path("backup").c_str(), 0), 0);
        expectOnce(traceLines(readFile(path("backup"))), m_iTried + iChildren);
        EXPECT_EQ(ZEBU2_DeleteInstance(m_shared), 0);
        EXPECT_EQ(ZEBU2_Finalize(), 0);
    }
    static void expectOnce(const Lines& lines, int iCount)
    {
        Lines texts = bodies(lines);
        std::sort(texts.begin(), texts.end());
        EXPECT_EQ(std::adjacent_find(texts.begin(), texts.end()), texts.end());
        EXPECT_EQ(static_cast<int>(texts.size()), iCount);
    }
    // An instance with a ring of its own for one line.
    int passing(const std::string& own) const
    {
        ZEBU2_HINSTANCE hInstance = nullptr;
        const std::string name = path(own);
        const tagZEBU_LOGFILE_SPEC spec = {4096, 2, name.c_str()};
        return ZEBU2_CreateInstance(&hInstance, &spec, "own") |
               ZEBU2_SetInstanceShmThreshold(hInstance, ZEBU2_LEVEL_OFF) |
               ZEBU2_PutInstanceLine(hInstance, 0, "own") | ZEBU2_DeleteInstance(hInstance);
    }

    // Runs `body(thread, n)` with rising n until the end, or `iTimes` times.
    template <class Body>
    void inThread(Body body, int iTimes = 1 << 30)
    {
        m_threads.emplace_back([this, body, iTimes, t = m_threads.size()] {
            for (int n = 0; n < iTimes && !m_bStop; ++n)
                body(std::to_string(t) + "." + std::to_string(n));
        });
    }
    void putting(int iLines)
    {
        inThread(
            [this](const std::string& name) {
                m_iPut += ZEBU2_PutLine(0, name.c_str()) == 0 ? 1 : 0;
                m_iShared += ZEBU2_PutInstanceLine(m_shared, 0, name.c_str()) == 0 ? 1 : 0;
                m_iTried += 1;
            },
            iLines);
    }

    ZEBU2_HINSTANCE m_shared = nullptr;
    std::atomic<int> m_iPut{0}, m_iShared{0}, m_iTried{0};
    std::atomic<bool> m_bStop{false};
    std::vector<std::thread> m_threads;
};

TEST_F(Host, EightThreadsPutWhileAnotherChangesEverything)
{
    start();
    for (int t = 0; t < 8; ++t)
        putting(400);
    for (int i = 0; i < 60; ++i) {
        ZEBU2_SetLogLevel(i % 3);
        (void)ZEBU2_GetLogLevel();
        ZEBU2_SetShmThreshold(i % 2 - 1);
        ZEBU2_SetInstanceLogLevel(m_shared, i % 5);
        ZEBU2_SetTimeStumpMode(i % 2);
        ZEBU2_SetSwapMessageMode(0);
        EXPECT_EQ(ZEBU2_FileBufferFlush(), 0);
        EXPECT_EQ(ZEBU2_InstanceFileBufferFlush(m_shared), 0);
        EXPECT_EQ(ZEBU2_ChFileAttr(i % 2 ? 0640 : 0644), 0);
        EXPECT_EQ(ZEBU2_TraceBackup(path("backup").c_str()), 0);
        EXPECT_EQ(ZEBU2_InstanceTraceBackupM(m_shared, path("shared-backup").c_str(), i % 2 * 16), 0);
        EXPECT_EQ(passing("own"), 0);
    }
    finish();
}

// Whatever the parent's threads hold at the moment of a fork, its child logs at once, and neither loses a
// line through the other.
TEST_F(Host, ChildrenLogAtOnceWhateverTheParentsThreadsDo)
{
    constexpr int iChildren = 60;
    start();
    putting(60'000); // the shared ring holds the lines of both
    putting(60'000);
    inThread([this](const std::string&) {
        (void)ZEBU2_FileBufferFlush();
        (void)ZEBU2_InstanceFileBufferFlush(m_shared);
    });
    inThread([](const std::string&) { std::thread([] { (void)ZEBU2_GetLogLevel(); }).join(); });
    inThread([this](const std::string&) { (void)passing("own"); });
    for (int i = 0; i < iChildren; ++i) {
        const int iStatus = inChild([&] {
            alarm(30); // a mutex that stayed locked
            const std::string text = "child " + std::to_string(i);
            CHECK(ZEBU2_PutInstanceLine(m_shared, 0, text.c_str()) == 0);
            CHECK(ZEBU2_PutToShm(text.data(), text.size()) == 0 && lastError() == 0);
            CHECK(result(ZEBU2_PutLine(0, "refused")) == Result(-1, 0x08000016)); // the ring is the parent's
            CHECK(passing("childs") == 0);
        });
        ASSERT_EQ(iStatus, 0) << "child " << i;
    }
    m_bStop = true;
    finish(iChildren);
    const Lines area = areaLines();
    EXPECT_EQ(area.size(), static_cast<size_t>(iChildren));
    for (size_t i = 0; i < area.size(); ++i)
        EXPECT_EQ(body(area[i]), "child " + std::to_string(i));
}

// ---- Full disks ----------------------------------------------------------------------------------

class FullDisk : public Sandbox
{
protected:
    void SetUp() override
    {
        if (!enterPrivateOpt())
            GTEST_SKIP() << "no mount namespaces here";
        ASSERT_EQ(mkdir("/opt/full", 0777), 0);
        ASSERT_EQ(mount("none", "/opt/full", "tmpfs", 0, "size=96k"), 0);
    }
};

TEST_F(FullDisk, RingOfOneProcessReportsItAndGoesOnWhenThereIsRoom)
{
    const tagZEBU_LOGFILE_SPEC spec = {16384, 8, "/opt/full/app"};
    ASSERT_EQ(ZEBU2_Initialize(&spec, "full"), 0);
    Lines acknowledged;
    for (int i = 0, iFailed = 0; iFailed < 5; ++i) {
        const std::string text =
            "line " + std::to_string(i) + std::string(static_cast<size_t>(i * 37 % 3000), '.');
        if (ZEBU2_PutLine(0, text.c_str()) == 0) {
            acknowledged.push_back(text);
            continue;
        }
        ++iFailed;
        EXPECT_EQ(lastError(), 0x08000004);
        EXPECT_EQ(lastCode(), ENOSPC);
    }
    ASSERT_EQ(truncate("/opt/full/app1.log", 0), 0); // an operator makes room
    EXPECT_EQ(ZEBU2_PutLine(0, "again"), 0);
    acknowledged.push_back("again");
    EXPECT_EQ(ZEBU2_Finalize(), 0);

    Lines found;
    for (int n = 1; n <= 8; ++n) {
        const std::string bytes = readFile("/opt/full/app" + std::to_string(n) + ".log");
        EXPECT_TRUE(bytes.empty() || bytes.ends_with("\r\n")) << n;
        for (const std::string& text : bodies(traceLines(bytes)))
            found.push_back(text);
    }
    ASSERT_LT(found.size(), acknowledged.size()); // without those of the file that was emptied
    EXPECT_EQ(found, Lines(acknowledged.end() - static_cast<long>(found.size()), acknowledged.end()));
}

TEST_F(FullDisk, LineLongerThanASharedFileFindsNoRoom)
{
    const tagZEBU_LOGFILE_SPEC spec = {4096, 2, "/opt/full/app"};
    ASSERT_EQ(ZEBU2_InitializeM(&spec, "full", ZEBU2_OPT_NOFILL), 0);
    writeFile("/opt/full/rest", std::string(1 << 20, 'x'));
    EXPECT_EQ(result(ZEBU2_PutLine(0, std::string(4117, 'x').c_str())), Result(-1, 0x08000004));
    EXPECT_EQ(lastCode(), ENOSPC);
    ASSERT_EQ(truncate("/opt/full/rest", 0), 0);
    EXPECT_EQ(ZEBU2_PutLine(0, std::string(4117, 'x').c_str()), 0);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
}

// Also when the file is there already, a hole for the most part.
TEST_F(FullDisk, AreaThatCannotHaveItsBlocksIsAnErrorAtOpen)
{
    writeFile(configFile(), "LogFile = /opt/full/log\nMapSize = 200000\n");
    for (const bool bSparse : {false, true}) {
        if (bSparse) {
            writeFile("/opt/full/mmap/zebu2mmap.mm", "");
            ASSERT_EQ(truncate("/opt/full/mmap/zebu2mmap.mm", 200'000), 0);
        }
        EXPECT_EQ(result(ZEBU2_Initialize(ring(), "full")), Result(2, ZEBU_EPOS_WRITE)) << bSparse;
        EXPECT_EQ(lastCode(), ENOSPC);
        EXPECT_EQ(ZEBU2_PutLine(0, "line"), 0);
        EXPECT_EQ(ZEBU2_Finalize(), 0);
    }
}
