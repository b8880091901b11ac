// What a host does to the library it loads: threads that do everything at once, forks in the middle of it,
// disks that are full.
#include <sys/mount.h>

#include "support/Sandbox.h"

// ---- Threads and forks ---------------------------------------------------------------------------

class Host : public Sandbox
{
protected:
    // Everything that is not a put of its own line. Returns 0.
    int everythingElse(int iOdd)
    {
        ZEBU2_SetLogLevel(iOdd);
        ZEBU2_SetInstanceLogLevel(m_shared, iOdd);
        ZEBU2_SetTimeStumpMode(iOdd);
        std::thread([] { (void)ZEBU2_GetLogLevel(); }).join();
        return ZEBU2_FileBufferFlush() | ZEBU2_InstanceFileBufferFlush(m_shared) |
               ZEBU2_ChFileAttr(iOdd ? 0640 : 0644) | ZEBU2_TraceBackup(path("copy").c_str()) |
               ZEBU2_InstanceTraceBackupM(m_shared, path("other").c_str(), iOdd * 16) | passing("own");
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
    void expectOnce(int iCount) const
    {
        const Lines texts = bodies(traceLines(readFile(path("copy"))));
        EXPECT_EQ(static_cast<int>(texts.size()), iCount);
        EXPECT_EQ(std::set<std::string>(texts.begin(), texts.end()).size(), texts.size());
    }

    ZEBU2_HINSTANCE m_shared = nullptr;
};

TEST_F(Host, ACancelledThreadLeavesNoLockBehind)
{
    alarm(60); // ends a put that waits for a mutex that nobody gives back
    ASSERT_EQ(ZEBU2_Initialize(ring(4096), "host"), 0); // both move on again and again
    ASSERT_EQ(ZEBU2_CreateInstanceM(&m_shared, ring(4096, 3, "shared"), "host", ZEBU2_OPT_NOFILL), 0);
    const auto putForEver = [](void* hShared) -> void* {
        for (;; pthread_testcancel())
            (void)(ZEBU2_PutLine(0, "line") | ZEBU2_PutInstanceLine(ZEBU2_HINSTANCE(hShared), 0, "line") |
                   ZEBU2_LogFileClear("/proc/self/*", ZEBU2_CLEAR_BY_NUMBER, 1000)); // reads a directory
    };
    const long lOpen = openDescriptors();
    for (int i = 0; i < 100; ++i) {
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, nullptr, putForEver, m_shared), 0);
        std::this_thread::sleep_for(std::chrono::microseconds(50 + i * 5)); // any moment will do
        ASSERT_EQ(pthread_cancel(thread) | pthread_join(thread, nullptr), 0);
        EXPECT_EQ(ZEBU2_PutLine(0, "after") | ZEBU2_PutInstanceLine(m_shared, 0, "after"), 0);
    }
    EXPECT_EQ(openDescriptors(), lOpen);
}

// A daemon closes its standard descriptors, and later prints.
TEST_F(Host, NoDescriptorIsAStandardOne)
{
    ASSERT_EQ(ZEBU2_Initialize(ring(4096), "app"),
              0); // what is opened while nothing is closed does not count
    stop();
    const int iStatus = inChild([&] {
        const auto isFree = [] {
            return fcntl(0, F_GETFD) == -1 && fcntl(1, F_GETFD) == -1 && fcntl(2, F_GETFD) == -1;
        };
        CHECK(close(0) == 0 && close(1) == 0);
        const int iErrors = fcntl(2, F_DUPFD_CLOEXEC, 9); // for CHECK
        CHECK(close(2) == 0);
        const bool bRun = ZEBU2_Initialize(ring(4096), "app") == 0 &&
                          ZEBU2_CreateInstanceM(&m_shared, ring(4096, 3, "shared"), "app", 0) == 0;
        bool bFree = bRun && isFree();
        for (int i = 0; i < 10; ++i) // both move on
            bFree = ZEBU2_PutLine(0, std::string(900, 'x').c_str()) == 0 &&
                    ZEBU2_PutInstanceLine(m_shared, 0, std::string(900, 'x').c_str()) == 0 && isFree() &&
                    bFree;
        CHECK(dup2(iErrors, 2) == 2);
        CHECK(bFree);
    });
    EXPECT_EQ(iStatus, 0);
}

// Whatever the parent's threads hold at the moment of a fork, its child logs at once, and neither loses a
// line through the other.
TEST_F(Host, ChildrenLogAtOnceWhateverTheParentsThreadsDo)
{
    constexpr int iChildren = 60;
    ASSERT_GE(ZEBU2_SetInstanceLockRetryTimes(nullptr, 20'000), 0); // 1 ms each: no put gives up
    ASSERT_EQ(ZEBU2_Initialize(ring(4 << 20, 16), "host"), 0);
    ASSERT_EQ(ZEBU2_CreateInstanceM(&m_shared, ring(1 << 20, 16, "shared"), "host", ZEBU2_OPT_NOFILL), 0);
    ZEBU2_SetShmThreshold(ZEBU2_LEVEL_OFF); // the area is the children's
    ASSERT_EQ(ZEBU2_SetInstanceShmThreshold(m_shared, ZEBU2_LEVEL_OFF), 0);

    std::atomic<int> iFailed{0}, iPut{0};
    std::atomic<bool> bStop{false};
    std::thread parent([&] {
        inThreads(9, [&](int t) {
            for (int n = 0; !bStop && n < 20'000; ++n) { // the shared ring holds the lines of all
                const std::string text = std::to_string(t) + "." + std::to_string(n);
                iFailed |= t == 8 ? everythingElse(n % 2)
                                  : ZEBU2_PutLine(0, text.c_str()) |
                                        ZEBU2_PutInstanceLine(m_shared, 0, text.c_str());
                iPut += t == 8 ? 0 : 1;
            }
        });
    });
    for (int i = 0; i < iChildren; ++i) {
        const int iStatus = inChild([&] {
            alarm(30); // a mutex that stayed locked
            const std::string text = "child " + std::to_string(i);
            CHECK(ZEBU2_PutInstanceLine(m_shared, 0, text.c_str()) == 0);
            CHECK(ZEBU2_PutToShm(text.data(), text.size()) == 0 && lastError() == 0);
            CHECK(result(ZEBU2_PutLine(0, text.c_str())) == Result(0, 0)); // through what it inherited
            CHECK(passing("childs") == 0);
        });
        EXPECT_EQ(iStatus, 0) << "child " << i;
    }
    bStop = true;
    parent.join();
    EXPECT_EQ(iFailed, 0);
    EXPECT_EQ(ZEBU2_TraceBackup(path("copy").c_str()), 0);
    expectOnce(iPut + iChildren);
    EXPECT_EQ(ZEBU2_InstanceTraceBackupM(m_shared, path("copy").c_str(), 0), 0);
    expectOnce(iPut + iChildren);
    EXPECT_EQ(areaLines().size(), size_t{iChildren});
    EXPECT_EQ(ZEBU2_DeleteInstance(m_shared), 0);
    stop();
}

extern "C" __attribute__((weak)) void __asan_init();
extern "C" __attribute__((weak)) void __tsan_init();

TEST_F(Host, FirstCallsNeedLittleStack)
{
    if (__asan_init || __tsan_init)
        GTEST_SKIP() << "sanitizers make frames larger";
    constexpr size_t ROOM = 1 << 18;
    static char stack[ROOM] __attribute__((aligned(4096)));
    memset(stack, '#', ROOM);
    const std::string prefixes[] = {path("first"), path("second")};
    tagZEBU_LOGFILE_SPEC specs[] = {{4096, 2, prefixes[0].c_str()}, {4096, 2, prefixes[1].c_str()}};
    const auto firstCalls = [](void* p) -> void* {
        const auto* pSpecs = static_cast<tagZEBU_LOGFILE_SPEC*>(p);
        ZEBU2_HINSTANCE other = nullptr;
        return reinterpret_cast<void*>(uintptr_t(ZEBU2_Initialize(&pSpecs[0], "host") |
                                                 ZEBU2_PutLine(0, "first") |
                                                 ZEBU2_CreateInstanceM(&other, &pSpecs[1], "host", 0)));
    };
    pthread_attr_t attributes;
    pthread_t thread;
    void* failed = stack;
    ASSERT_EQ(pthread_attr_init(&attributes) | pthread_attr_setstack(&attributes, stack, ROOM), 0);
    ASSERT_EQ(pthread_create(&thread, &attributes, firstCalls, specs) | pthread_join(thread, &failed), 0);
    EXPECT_EQ(failed, nullptr);
    EXPECT_LT(ROOM - std::string_view(stack, ROOM).find_first_not_of('#'), size_t{16 << 10});
}

// Files that get their length at once, where a process may not make any so long.
TEST_F(Host, ALimitOfFileSizesIsAFailureAndNoSignal)
{
    EXPECT_EQ(inChild([&] {
                  const rlimit limit = {20'000, 20'000};
                  CHECK(setrlimit(RLIMIT_FSIZE, &limit) == 0);
                  CHECK(result(ZEBU2_Initialize(ring(4096), "app")) == Result(2, 4) && lastCode() == EFBIG);
                  CHECK(ZEBU2_Finalize() == 0);
                  for (const int iOption : {0, ZEBU2_OPT_NOFILL})
                      CHECK(result(ZEBU2_InitializeM(ring(65536, 2, "shared"), "app", iOption)) ==
                                Result(-1, 0x27000004) &&
                            lastCode() == EFBIG);
              }),
              0);
}

static constexpr int FORKS = 100;
static pid_t children[FORKS];
static std::atomic<int> forked{0};
static volatile bool isChild = false;

static void forkInHandler(int)
{
    if (isChild || forked == FORKS)
        return;
    const pid_t child = fork();
    isChild = child == 0;
    if (child != 0)
        children[forked++] = child;
}

// The child goes on with what the handler interrupted, and logs.
TEST_F(Host, AHandlerMayForkWhateverItInterrupted)
{
    alarm(60); // ends a fork that waits for what its own thread holds
    ASSERT_EQ(ZEBU2_Initialize(ring(4096), "host"), 0);
    (void)signal(SIGUSR1, forkInHandler);
    std::thread sender([target = pthread_self()] {
        for (int last = -1; forked < FORKS; std::this_thread::sleep_for(std::chrono::microseconds(50 + last)))
            if (forked != last) { // one at a time: between two the thread gets somewhere
                last = forked;
                (void)pthread_kill(target, SIGUSR1);
            }
    });
    while (!isChild && forked < FORKS)
        (void)ZEBU2_PutLine(0, "interrupted");
    if (isChild) {
        alarm(20);
        (void)ZEBU2_PutLine(0, "child");
        (void)ZEBU2_FileBufferFlush();
        _exit(0);
    }
    sender.join();
    for (const pid_t child : children)
        EXPECT_EQ(waitForChild(child), 0);
    putLine("after");
    stop();
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
    writeFile("/opt/full/other", std::string(20'000, 'x'));
    const tagZEBU_LOGFILE_SPEC spec = {1 << 20, 1, "/opt/full/app"};
    ASSERT_EQ(ZEBU2_Initialize(&spec, "full"), 0);
    Lines acknowledged;
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
    ASSERT_EQ(unlink("/opt/full/other"), 0); // an operator makes room
    putLine("again");
    stop();
    acknowledged.push_back("again");
    EXPECT_EQ(bodies(traceLines(readFile("/opt/full/app1.log"))), acknowledged);
}

// Also when the file is there already, a hole that is short enough to be begun anew.
TEST_F(FullDisk, AreaThatCannotHaveItsBlocksIsAnErrorAtOpen)
{
    writeFile(configFile(), "LogFile = /opt/full/log\nMapSize = 200000\n");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(result(ZEBU2_Initialize(ring(), "full")), Result(2, ZEBU_EPOS_WRITE));
        EXPECT_EQ(lastCode(), ENOSPC);
        stop();
        std::filesystem::resize_file("/opt/full/mmap/zebu2mmap.mm", 0);
        std::filesystem::resize_file("/opt/full/mmap/zebu2mmap.mm", 4096);
    }
}
