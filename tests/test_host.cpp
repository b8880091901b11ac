// What a host does to the library it loads: threads that do everything at once, forks in the middle of it,
// disks that are full.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <set>
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
        EXPECT_EQ(m_iFailed, 0);
        const std::string copy = path("copy");
        EXPECT_EQ(ZEBU2_TraceBackup(copy.c_str()), 0);
        expectOnce(readFile(copy), m_iTried);
        EXPECT_EQ(ZEBU2_InstanceTraceBackupM(m_shared, copy.c_str(), 0), 0);
        expectOnce(readFile(copy), m_iTried + iChildren);
        EXPECT_EQ(ZEBU2_DeleteInstance(m_shared), 0);
        stop();
    }
    static void expectOnce(const std::string& bytes, int iCount)
    {
        const Lines texts = bodies(traceLines(bytes));
        EXPECT_EQ(static_cast<int>(texts.size()), iCount);
        EXPECT_EQ(std::set<std::string>(texts.begin(), texts.end()).size(), texts.size());
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

    // Runs `body` with another text each time until the end, or `iTimes` times.
    void inThread(const std::function<void(const char*)>& body, int iTimes = 1 << 30)
    {
        m_threads.emplace_back([this, body, iTimes, t = m_threads.size()] {
            for (int n = 0; n < iTimes && !m_bStop; ++n)
                body((std::to_string(t) + "." + std::to_string(n)).c_str());
        });
    }
    void putting(int iLines)
    {
        const auto put = [this](const char* pszText) {
            m_iFailed |= ZEBU2_PutLine(0, pszText) | ZEBU2_PutInstanceLine(m_shared, 0, pszText);
            m_iTried += 1;
        };
        inThread(put, iLines);
    }

    ZEBU2_HINSTANCE m_shared = nullptr;
    std::atomic<int> m_iFailed{0}, m_iTried{0};
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
        ZEBU2_SetShmThreshold(i % 2 - 1);
        ZEBU2_SetInstanceLogLevel(m_shared, i % 5);
        ZEBU2_SetTimeStumpMode(i % 2);
        m_iFailed |= ZEBU2_FileBufferFlush() | ZEBU2_InstanceFileBufferFlush(m_shared) |
                     ZEBU2_ChFileAttr(i % 2 ? 0640 : 0644) | ZEBU2_TraceBackup(path("copy").c_str()) |
                     ZEBU2_InstanceTraceBackupM(m_shared, path("other").c_str(), i % 2 * 16) | passing("own");
    }
    finish();
}

// Whatever the parent's threads hold at the moment of a fork, its child logs at once, and neither loses a
// line through the other.
TEST_F(Host, ACancelledThreadLeavesNoLockBehind)
{
    alarm(60); // ends a put that waits for a mutex that nobody gives back
    ASSERT_EQ(ZEBU2_Initialize(ring(4096), "host"), 0); // both move on again and again
    ASSERT_EQ(ZEBU2_CreateInstanceM(&m_shared, ring(4096, 3, "shared"), "host", ZEBU2_OPT_NOFILL), 0);
    const auto putForEver = [](void* hShared) -> void* {
        for (;; pthread_testcancel())
            (void)(ZEBU2_PutLine(0, "line") | ZEBU2_PutInstanceLine(ZEBU2_HINSTANCE(hShared), 0, "line"));
    };
    for (int i = 0; i < 100; ++i) {
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, nullptr, putForEver, m_shared), 0);
        std::this_thread::sleep_for(std::chrono::microseconds(50 + i)); // any moment will do
        ASSERT_EQ(pthread_cancel(thread) | pthread_join(thread, nullptr), 0);
        EXPECT_EQ(ZEBU2_PutLine(0, "after") | ZEBU2_PutInstanceLine(m_shared, 0, "after"), 0);
    }
}

TEST_F(Host, ChildrenLogAtOnceWhateverTheParentsThreadsDo)
{
    constexpr int iChildren = 60;
    start();
    putting(60'000); // the shared ring holds the lines of both
    putting(60'000);
    inThread([this](const char*) {
        (void)ZEBU2_FileBufferFlush();
        (void)ZEBU2_InstanceFileBufferFlush(m_shared);
    });
    inThread([](const char*) { std::thread([] { (void)ZEBU2_GetLogLevel(); }).join(); });
    inThread([this](const char*) { (void)passing("own"); });
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
    const Lines area = bodies(areaLines());
    ASSERT_EQ(area.size(), static_cast<size_t>(iChildren));
    for (int i = 0; i < iChildren; ++i)
        EXPECT_EQ(area[static_cast<size_t>(i)], "child " + std::to_string(i));
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
    Lines acknowledged, found;
    for (int i = 0, iFailed = 0; iFailed < 5; ++i) {
        const std::string text = std::to_string(i) + std::string(static_cast<size_t>(i * 37 % 3000), '.');
        if (ZEBU2_PutLine(0, text.c_str()) == 0) {
            acknowledged.push_back(text);
            continue;
        }
        ++iFailed;
        EXPECT_EQ(lastError(), 0x08000004);
        EXPECT_EQ(lastCode(), ENOSPC);
    }
    std::filesystem::resize_file("/opt/full/app1.log", 0); // an operator makes room
    putLine("again");
    acknowledged.push_back("again");
    stop();
    for (int n = 1; n <= 8; ++n) {
        const std::string bytes = readFile("/opt/full/app" + std::to_string(n) + ".log");
        EXPECT_TRUE(bytes.empty() || bytes.ends_with("\r\n")) << n;
        for (const std::string& text : bodies(traceLines(bytes)))
            found.push_back(text);
    }
    ASSERT_LT(found.size(), acknowledged.size()); // without those of the file that was emptied
    EXPECT_EQ(found, Lines(acknowledged.end() - static_cast<long>(found.size()), acknowledged.end()));
}

// Also when the file is there already, a hole for the most part.
TEST_F(FullDisk, AreaThatCannotHaveItsBlocksIsAnErrorAtOpen)
{
    writeFile(configFile(), "LogFile = /opt/full/log\nMapSize = 200000\n");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(result(ZEBU2_Initialize(ring(), "full")), Result(2, ZEBU_EPOS_WRITE));
        EXPECT_EQ(lastCode(), ENOSPC);
        stop();
        std::filesystem::resize_file("/opt/full/mmap/zebu2mmap.mm", 0);
        std::filesystem::resize_file("/opt/full/mmap/zebu2mmap.mm", 200'000);
    }
}
