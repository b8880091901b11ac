// What a host does to the library it loads: threads that do everything at once, and forks in the middle of
// it. Full disks are the injector's.
#include "support/Sandbox.h"

class Host : public Sandbox
{
protected:
    // An instance with a ring of its own for one line.
    int passing(const std::string& own)
    {
        ZEBU2_HINSTANCE hInstance = nullptr;
        return ZEBU2_CreateInstance(&hInstance, ring(4096, 2, own), "own") |
               ZEBU2_SetInstanceShmThreshold(hInstance, ZEBU2_LEVEL_OFF) |
               ZEBU2_PutInstanceLine(hInstance, 0, "own") | ZEBU2_DeleteInstance(hInstance);
    }

    ZEBU2_HINSTANCE m_hShared = nullptr;
};

TEST_F(Host, ACancelledThreadLeavesNoLockBehind)
{
    alarm(60); // ends a put that waits for a mutex that nobody gives back
    ASSERT_EQ(ZEBU2_Initialize(ring(4096), "host"), 0); // both move on again and again
    ASSERT_EQ(ZEBU2_CreateInstanceM(&m_hShared, ring(4096, 3, "shared"), "host", ZEBU2_OPT_NOFILL), 0);
    const auto putForEver = [](void* hShared) -> void* {
        for (;; pthread_testcancel())
            (void)(ZEBU2_PutLine(0, "line") | ZEBU2_PutInstanceLine(ZEBU2_HINSTANCE(hShared), 0, "line") |
                   ZEBU2_LogFileClear("/proc/self/*", ZEBU2_CLEAR_BY_NUMBER, 1000)); // reads a directory
    };
    const long lOpen = openDescriptors();
    for (int i = 0; i < 100; ++i) {
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, nullptr, putForEver, m_hShared), 0);
        std::this_thread::sleep_for(std::chrono::microseconds(50 + i * 5)); // any moment will do
        ASSERT_EQ(pthread_cancel(thread) | pthread_join(thread, nullptr), 0);
        EXPECT_EQ(ZEBU2_PutLine(0, "after") | ZEBU2_PutInstanceLine(m_hShared, 0, "after"), 0);
    }
    EXPECT_EQ(openDescriptors(), lOpen);
}

// A daemon closes its standard descriptors, and later prints.
TEST_F(Host, NoDescriptorIsAStandardOne)
{
    ASSERT_EQ(ZEBU2_Initialize(ring(4096), "app"), 0);
    stop(); // what is opened while nothing is closed does not count
    passInChild([&] {
        const int iErrors = fcntl(2, F_DUPFD_CLOEXEC, 9); // for CHECK
        const std::string text(900, 'x');
        bool bFree = (close(0) | close(1) | close(2)) == 0 && ZEBU2_Initialize(ring(4096), "app") == 0 &&
                     ZEBU2_CreateInstanceM(&m_hShared, ring(4096, 3, "shared"), "app", 0) == 0;
        for (int i = 0; i < 10; ++i) // both move on
            bFree = bFree && fcntl(0, F_GETFD) + fcntl(1, F_GETFD) + fcntl(2, F_GETFD) == -3 &&
                    ZEBU2_PutLine(0, text.c_str()) == 0 &&
                    ZEBU2_PutInstanceLine(m_hShared, 0, text.c_str()) == 0;
        CHECK(dup2(iErrors, 2) == 2 && bFree);
    });
}

// Whatever the parent's threads hold at the moment of a fork, its child logs at once, and neither loses a
// line through the other.
TEST_F(Host, ChildrenLogAtOnceWhateverTheParentsThreadsDo)
{
    constexpr int iChildren = 60;
    ASSERT_GE(ZEBU2_SetInstanceLockRetryTimes(nullptr, 20'000), 0); // 1 ms each: no put gives up
    ASSERT_EQ(ZEBU2_Initialize(ring(4 << 20, 16), "host"), 0);
    ASSERT_EQ(ZEBU2_CreateInstanceM(&m_hShared, ring(1 << 20, 16, "shared"), "host", ZEBU2_OPT_NOFILL), 0);
    ZEBU2_SetShmThreshold(ZEBU2_LEVEL_OFF); // the area is the children's
    ASSERT_EQ(ZEBU2_SetInstanceShmThreshold(m_hShared, ZEBU2_LEVEL_OFF), 0);

    const auto everythingElse = [&](int iOdd) { // 0 when it succeeds
        ZEBU2_SetLogLevel(iOdd);
        ZEBU2_SetInstanceLogLevel(m_hShared, iOdd);
        ZEBU2_SetTimeStumpMode(iOdd);
        std::thread([] { (void)ZEBU2_GetLogLevel(); }).join();
        return ZEBU2_FileBufferFlush() | ZEBU2_InstanceFileBufferFlush(m_hShared) |
               ZEBU2_ChFileAttr(iOdd ? 0640 : 0644) | ZEBU2_TraceBackup(path("copy").c_str()) |
               ZEBU2_InstanceTraceBackupM(m_hShared, path("other").c_str(), iOdd * 16) | passing("own");
    };
    std::atomic<int> iFailed{0}, iPut{0};
    std::atomic<bool> bStop{false};
    std::thread parent([&] {
        inThreads(9, [&](int t) {
            for (int n = 0; !bStop && n < 20'000; ++n) { // the shared ring holds the lines of all
                const std::string text = std::to_string(t) + "." + std::to_string(n);
                iFailed |= t == 8 ? everythingElse(n % 2)
                                  : ZEBU2_PutLine(0, text.c_str()) |
                                        ZEBU2_PutInstanceLine(m_hShared, 0, text.c_str());
                iPut += t == 8 ? 0 : 1;
            }
        });
    });
    for (int i = 0; i < iChildren; ++i) {
        SCOPED_TRACE(i);
        passInChild([&] {
            alarm(30); // a mutex that stayed locked
            const std::string text = "child " + std::to_string(i);
            CHECK(ZEBU2_PutInstanceLine(m_hShared, 0, text.c_str()) == 0);
            CHECK(ZEBU2_PutToShm(text.data(), text.size()) == 0 && lastError() == 0);
            CHECK(result(ZEBU2_PutLine(0, text.c_str())) == Result(0, 0)); // through what it inherited
            CHECK(passing("childs") == 0);
        });
    }
    bStop = true;
    parent.join();
    EXPECT_EQ(iFailed, 0);
    for (const bool bShared : {false, true}) {
        EXPECT_EQ(bShared ? ZEBU2_InstanceTraceBackupM(m_hShared, path("copy").c_str(), 0)
                          : ZEBU2_TraceBackup(path("copy").c_str()),
                  0);
        const Lines texts = bodies(traceLines(readFile(path("copy"))));
        EXPECT_EQ(static_cast<int>(texts.size()), iPut + iChildren);
        EXPECT_EQ(std::set<std::string>(texts.begin(), texts.end()).size(), texts.size());
    }
    EXPECT_EQ(areaLines().size(), size_t{iChildren});
    EXPECT_EQ(ZEBU2_DeleteInstance(m_hShared) | ZEBU2_Finalize(), 0);
}

extern "C" __attribute__((weak)) void __asan_init();
extern "C" __attribute__((weak)) void __tsan_init();

TEST_F(Host, FirstCallsNeedLittleStack)
{
    if (__asan_init || __tsan_init)
        GTEST_SKIP() << "sanitizers make frames larger";
    constexpr size_t cs_uRoom = 1 << 18;
    static char stack[cs_uRoom] __attribute__((aligned(4096)));
    memset(stack, '#', cs_uRoom);
    int iFailed = -1;
    std::function<void()> firstCalls = [&] {
        iFailed = ZEBU2_Initialize(ring(4096, 2), "host") | ZEBU2_PutLine(0, "first") |
                  ZEBU2_CreateInstanceM(&m_hShared, ring(4096, 2, "second"), "host", 0);
    };
    const auto run = [](void* pCalls) -> void* {
        return (*static_cast<std::function<void()>*>(pCalls))(), nullptr;
    };
    pthread_attr_t attributes;
    pthread_t thread;
    ASSERT_EQ(pthread_attr_init(&attributes) | pthread_attr_setstack(&attributes, stack, cs_uRoom), 0);
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &firstCalls), 0);
    (void)pthread_join(thread, nullptr);
    EXPECT_EQ(iFailed, 0);
    EXPECT_LT(cs_uRoom - std::string_view(stack, cs_uRoom).find_first_not_of('#'), size_t{16 << 10});
}

// Files that get their length at once, where a process may not make any so long.
TEST_F(Host, ALimitOfFileSizesIsAFailureAndNoSignal)
{
    passInChild([&] {
        const rlimit limit = {20'000, 20'000};
        CHECK(setrlimit(RLIMIT_FSIZE, &limit) == 0);
        CHECK(failure(ZEBU2_Initialize(ring(4096), "app")) == Failure(2, 4, EFBIG));
        CHECK(ZEBU2_Finalize() == 0);
        for (const int iOption : {0, ZEBU2_OPT_NOFILL})
            CHECK(failure(ZEBU2_InitializeM(ring(65536, 2, "shared"), "app", iOption)) ==
                  Failure(-1, 0x27000004, EFBIG));
    });
}

static constexpr int cs_iForks = 100;
static std::atomic<int> cs_iForked{0};
static volatile bool cs_bChild = false;

static void fs_forkInHandler(int)
{
    if (cs_bChild || cs_iForked == cs_iForks)
        return;
    cs_bChild = fork() == 0;
    ++cs_iForked;
}

// The child goes on with what the handler interrupted, and logs.
TEST_F(Host, AHandlerMayForkWhateverItInterrupted)
{
    alarm(60); // ends a fork that waits for what its own thread holds
    ASSERT_EQ(ZEBU2_Initialize(ring(4096), "host"), 0);
    (void)signal(SIGUSR1, fs_forkInHandler);
    std::thread sender([target = pthread_self()] {
        for (int iLast = -1; cs_iForked < cs_iForks; usleep(static_cast<useconds_t>(50 + iLast)))
            if (cs_iForked != iLast) { // one at a time: between two the thread gets somewhere
                iLast = cs_iForked;
                (void)pthread_kill(target, SIGUSR1);
            }
    });
    while (!cs_bChild && cs_iForked < cs_iForks)
        (void)ZEBU2_PutLine(0, "interrupted");
    if (cs_bChild) {
        alarm(20);
        (void)ZEBU2_PutLine(0, "child");
        (void)ZEBU2_FileBufferFlush();
        _exit(0);
    }
    sender.join();
    for (int i = 0, iStatus = 0; i < cs_iForks; ++i)
        EXPECT_TRUE(wait(&iStatus) > 0 && iStatus == 0);
    putLine("after");
    stop();
}
