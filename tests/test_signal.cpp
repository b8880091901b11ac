// The signal-safe put: its line, its results, and handlers that interrupt the library anywhere.
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include "support/AreaConsumer.h"

using Signal = Sandbox;

TEST_F(Signal, StoresALineWithPlaceholdersOrTellsWhyNot)
{
    EXPECT_EQ(ZEBU2_PutMsgSigSafe("no area yet"), -1); // takes number 0000
    startArea();
    EXPECT_EQ(ZEBU2_SetLogLevel(1001), 0);
    errno = 4711;
    EXPECT_EQ(ZEBU2_PutMsgSigSafe(nullptr), -1); // takes none
    EXPECT_EQ(ZEBU2_PutMsgSigSafe(std::string(5000, 'L').c_str()), 0);
    EXPECT_EQ(errno, 4711);
    EXPECT_EQ(lastError(), 0x02000001);
    char szExpected[200];
    (void)snprintf(szExpected, sizeof szExpected, "0001 ----/--/-- --:--:--.---     %-16s %08X -------- ",
                   "app", static_cast<unsigned>(getpid()));
    EXPECT_EQ(areaLines(), Lines{szExpected + std::string(4117, 'L')});

    for (int i = 0; i < 20; ++i)
        (void)ZEBU2_PutToShm(std::string(4000, 'f').data(), 4000);
    EXPECT_EQ(result(ZEBU2_PutMsgSigSafe(std::string(4000, 'x').c_str())), Result(-1, 0));
    setAreaField(16, 70000);
    EXPECT_EQ(result(ZEBU2_PutMsgSigSafe("damaged")), Result(-1, 26));
    // No context is made for it: the one that the question makes knows nothing.
    std::thread([] { EXPECT_EQ(result(ZEBU2_PutMsgSigSafe("damaged")), Result(-1, 0)); }).join();
}

// It looks at blocks of 16 bytes, but never at another page.
TEST_F(Signal, StaysInThePageOfTheText)
{
    constexpr size_t cs_uPage = 4096;
    void* pPages = mmap(nullptr, 2 * cs_uPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_EQ(mprotect(pPages, cs_uPage, PROT_READ | PROT_WRITE), 0);
    startArea();
    Lines texts;
    for (size_t uLength = 0; uLength <= 40; ++uLength) {
        texts.push_back(std::string(uLength, 'a'));
        char* pszAtEnd = static_cast<char*>(pPages) + cs_uPage - uLength - 1;
        EXPECT_EQ(ZEBU2_PutMsgSigSafe(strcpy(pszAtEnd, texts.back().c_str())), 0);
    }
    EXPECT_EQ(bodies(areaLines()), texts);
}

// ---- Handlers ------------------------------------------------------------------------------------

static std::atomic<int> cs_iHandled{0};
static const AreaConsumer* cs_pArea;
// Short, long and of the greatest length.
static const std::string cs_handlerTexts[] = {areaMessage("handler", 5), areaMessage("handler", 300),
                                              areaMessage("handler", 30)};

static void fs_onSignal(int)
{
    // What the interrupted put has found free stays free for it, however many handlers run before it goes on.
    if (cs_pArea && !cs_pArea->hasRoom(40000))
        return;
    // Also when it interrupted an append.
    CHECK(ZEBU2_PutMsgSigSafe(cs_handlerTexts[cs_iHandled++ % 3].c_str()) == 0 || !cs_pArea);
}

// Runs `body` while a timer interrupts the calling thread every 97 us.
static void underTimer(const std::function<void()>& body)
{
    sigevent event = {};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = SIGUSR1;
    event._sigev_un._tid = gettid();
    const itimerspec every = {{0, 97000}, {0, 97000}};
    timer_t timer;
    CHECK(timer_create(CLOCK_MONOTONIC, &event, &timer) == 0);
    CHECK(timer_settime(timer, 0, &every, nullptr) == 0);
    body();
    CHECK(timer_delete(timer) == 0);
}

// One thread that a timer interrupts, then three at once, beside a process that puts with two threads.
TEST_F(Signal, HandlersThatInterruptPutsTearAndLoseNothing)
{
    constexpr int cs_iLines = 5000;
    startArea();
    (void)signal(SIGUSR1, fs_onSignal);
    AreaConsumer consumer(areaFile());
    cs_pArea = &consumer;
    const pid_t iOther = startChild([&] {
        inThreads(2, [&](int t) {
            for (int i = 0; i < cs_iLines; ++i)
                consumer.put("other" + std::to_string(t), i);
        });
    });
    std::atomic<int> iPut{0};
    const auto put = [&](int t) {
        for (int i = 0; i < cs_iLines || cs_iHandled < 100; ++i, ++iPut)
            consumer.put("interrupted" + std::to_string(t), i);
    };
    std::atomic<bool> bDone{false};
    std::thread writers([&] {
        underTimer([&] { put(0); });
        inThreads(3, [&](int t) { underTimer([&] { put(1 + t); }); });
        EXPECT_EQ(waitForChild(iOther), 0);
        bDone = true;
    });
    while (!bDone)
        consumer.drain();
    writers.join();
    consumer.drain();
    for (const char* pszHandled : {"handler 5", "handler 300", "handler 30"})
        cs_iHandled -= consumer.m_seen.extract(pszHandled).mapped();
    EXPECT_EQ(cs_iHandled, 0);
    consumer.expectSeen(2 * cs_iLines + static_cast<size_t>(iPut));
}

// As a container may: the kernel has no such call then.
static void forbidMembarrier()
{
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_membarrier, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter = {sizeof program / sizeof *program, program};
    CHECK(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0);
    CHECK(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0);
}

// Start and stop beside signal-safe puts of a handler, of a thread that the library knows and of one that it
// does not: nobody finds the area unmapped below it.
TEST_F(Signal, HandlersMayInterruptStartAndStop)
{
    for (const bool bMembarrier : {true, false}) {
        const int iEnd = inChild([&] {
            if (!bMembarrier)
                forbidMembarrier();
            (void)signal(SIGUSR1, fs_onSignal);
            const auto putMeanwhile = [](const std::stop_token& stop, bool bContext) {
                (void)(bContext && ZEBU2_PutLine(0, nullptr) == 0);
                while (!stop.stop_requested())
                    (void)ZEBU2_PutMsgSigSafe("other");
            };
            const std::jthread known(putMeanwhile, true), unknown(putMeanwhile, false);
            underTimer([] {
                for (int i = 0; i < 600 || cs_iHandled == 0; ++i) {
                    startArea();
                    stop();
                }
            });
        });
        EXPECT_EQ(iEnd, 0) << bMembarrier;
        EXPECT_EQ(areaHeader().uGuard, 0u);
    }
}
