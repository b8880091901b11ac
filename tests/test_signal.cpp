// The signal-safe put: its line, its results, and handlers that interrupt the library anywhere.
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "support/AreaConsumer.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZEBU_SANITIZED 1
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZEBU_SANITIZED 1
#endif

class Signal : public Sandbox
{
protected:
    void start() { ASSERT_EQ(ZEBU2_Initialize(nullptr, "app"), 1); }
    static void stop() { EXPECT_EQ(ZEBU2_Finalize(), 0); }
};

TEST_F(Signal, LineHasPlaceholders)
{
    EXPECT_EQ(ZEBU2_PutMsgSigSafe("no area yet"), -1);  // takes number 0000
    start();
    EXPECT_EQ(ZEBU2_PutToShm("ordinary", 8), 0);
    EXPECT_EQ(ZEBU2_SetLogLevel(1001), 0);
    errno = 4711;
    EXPECT_EQ(ZEBU2_PutMsgSigSafe("from a handler"), 0);
    EXPECT_EQ(ZEBU2_PutMsgSigSafe(nullptr), -1);  // takes no number
    EXPECT_EQ(ZEBU2_PutMsgSigSafe(std::string(5000, 'L').c_str()), 0);
    EXPECT_EQ(errno, 4711);
    EXPECT_EQ(lastError(), 0x02000001);
    const Lines written = areaLines();
    ASSERT_EQ(written.size(), 3u);
    char szExpected[200];
    (void)snprintf(szExpected, sizeof szExpected, "0002 ----/--/-- --:--:--.---     %-16s %08X -------- %s", "app",
                   static_cast<unsigned>(getpid()), "from a handler");
    EXPECT_EQ(written[1], szExpected);
    EXPECT_EQ(written[2].substr(0, 4), "0003");
    EXPECT_EQ(written[2].size(), 68u + 4117u);
    stop();
}

TEST_F(Signal, FullAndDamagedAreas)
{
    start();
    for (int i = 0; i < 20; ++i)
        (void)ZEBU2_PutToShm(std::string(4000, 'f').data(), 4000);
    EXPECT_EQ(ZEBU2_PutMsgSigSafe(std::string(4000, 'x').c_str()), -1);
    EXPECT_EQ(lastError(), 0);
    setAreaField(16, 70000);
    EXPECT_EQ(ZEBU2_PutMsgSigSafe("damaged"), -1);
    EXPECT_EQ(lastError(), 26);
    std::thread([] {
        EXPECT_EQ(ZEBU2_PutMsgSigSafe("damaged"), -1);
        EXPECT_EQ(lastError(), 16);  // none is made for it
    }).join();
    stop();
}

// ---- Handlers ------------------------------------------------------------------------------------

static std::atomic<int> cs_iHandled{0};
static std::atomic<int> cs_iStored{0};

// Puts "handler N" where every N that was stored can be told from the others.
static void onSignal(int)
{
    const int iNumber = cs_iHandled.fetch_add(1);
    char szText[128] = "handler ";
    char szDigits[16];
    int iDigits = 0;
    for (int i = iNumber; i > 0 || iDigits == 0; i /= 10)
        szDigits[iDigits++] = static_cast<char>('0' + i % 10);
    char* p = szText + 8;
    while (iDigits > 0)
        *p++ = szDigits[--iDigits];
    *p++ = ' ';
    for (int i = 0; i < iNumber % 997 && i < 100; ++i)
        *p++ = 'x';
    *p = '\0';
    if (iNumber % 997 <= 100 && ZEBU2_PutMsgSigSafe(szText) == 0)
        cs_iStored.fetch_add(1);
}

// Sends signals to a thread, as fast as it takes them, for as long as it lives.
class Bombardment
{
public:
    explicit Bombardment(pthread_t target)
    {
        struct sigaction action = {};
        action.sa_handler = onSignal;
        action.sa_flags = SA_RESTART;
        (void)sigaction(SIGUSR1, &action, nullptr);
        m_sender = std::thread([this, target] {
            while (!m_done) {
                const int iBefore = cs_iHandled;
                (void)pthread_kill(target, SIGUSR1);
                while (!m_done && cs_iHandled == iBefore)
                    std::this_thread::yield();
            }
        });
    }
    ~Bombardment()
    {
        m_done = true;
        m_sender.join();
    }

private:
    std::atomic<bool> m_done{false};
    std::thread m_sender;
};

TEST_F(Signal, HandlersThatInterruptPutsTearAndLoseNothing)
{
    constexpr int cs_iLines = 20000;
    start();
    AreaConsumer consumer(areaFile());
    std::atomic<bool> bDone{false};
    std::thread collector([&] {
        while (!bDone)
            consumer.drain();
        consumer.drain();
    });
    std::thread other([&] {
        for (int i = 0; i < cs_iLines; ++i) {
            consumer.waitForRoom();
            EXPECT_EQ(ZEBU2_PutToShm(areaMessage("other", i).data(), areaMessage("other", i).size()), 0);
        }
    });
    {
        const Bombardment bombardment(pthread_self());
        for (int i = 0; i < cs_iLines; ++i) {
            consumer.waitForRoom();
            EXPECT_EQ(ZEBU2_PutToShm(areaMessage("main", i).data(), areaMessage("main", i).size()), 0);
        }
    }
    other.join();
    bDone = true;
    collector.join();
    stop();
    EXPECT_EQ(consumer.m_torn, 0);
    EXPECT_GT(cs_iStored, 100);
    EXPECT_EQ(consumer.m_seen.size(), 2u * cs_iLines + static_cast<size_t>(cs_iStored));
    for (const auto& [line, count] : consumer.m_seen)
        ASSERT_EQ(count, 1) << line;
}

TEST_F(Signal, HandlersMayInterruptStartAndStop)
{
    const pthread_t self = pthread_self();
    const Bombardment bombardment(self);
    std::thread other([] {
        for (int i = 0; i < 20000; ++i)
            (void)ZEBU2_PutMsgSigSafe("other");
    });
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(ZEBU2_Initialize(nullptr, "app"), 1);
        ASSERT_EQ(ZEBU2_Finalize(), 0);
    }
    other.join();
    EXPECT_GT(cs_iHandled, 0);
    EXPECT_EQ(areaHeader().uGuard, 0u);
}

// ---- What it costs and calls ---------------------------------------------------------------------

static ucontext_t cs_back;

TEST_F(Signal, StackStaysUnder8KiB)
{
#ifdef ZEBU_SANITIZED
    GTEST_SKIP() << "sanitizers change the frames";
#endif
    start();
    static unsigned char stack[64 * 1024];
    memset(stack, 0xA5, sizeof stack);
    ucontext_t deep;
    ASSERT_EQ(getcontext(&deep), 0);
    deep.uc_stack.ss_sp = stack;
    deep.uc_stack.ss_size = sizeof stack;
    deep.uc_link = &cs_back;
    makecontext(&deep, [] { (void)ZEBU2_PutMsgSigSafe("how deep?"); }, 0);
    ASSERT_EQ(swapcontext(&cs_back, &deep), 0);
    size_t uUnused = 0;
    while (stack[uUnused] == 0xA5)
        ++uUnused;
    EXPECT_GT(sizeof stack - uUnused, 4188u);  // it was used at all
    EXPECT_LT(sizeof stack - uUnused, 8192u);
    EXPECT_EQ(areaLines().size(), 1u);
    stop();
}

TEST(SignalCode, CallsNoStringFunction)
{
#ifdef ZEBU_SANITIZED
    GTEST_SKIP() << "sanitizers add calls of their own";
#endif
    for (const char* pszObject : {"output/PMsgSig.cpp.o", "output/ltostr.cpp.o"}) {
        const std::string command = std::string("nm -u " ZEBU_OBJECTS "/") + pszObject;
        FILE* pSymbols = popen(command.c_str(), "r");
        ASSERT_NE(pSymbols, nullptr);
        char szLine[256];
        int iLines = 0;
        while (fgets(szLine, sizeof szLine, pSymbols)) {
            ++iLines;
            for (const char* pszForbidden : {" mem", " str", "malloc", "tls_get_addr"})
                EXPECT_EQ(strstr(szLine, pszForbidden), nullptr) << pszObject << ":" << szLine;
        }
        EXPECT_EQ(pclose(pSymbols), 0);
        EXPECT_TRUE(iLines > 0 || strstr(pszObject, "ltostr"));
    }
}

TEST_F(Signal, CrashHandlerLeavesALastLine)
{
    const int iStatus = system(("exec " ZEBU_EXAMPLES "/crash_handler " + prefix()).c_str());
    EXPECT_TRUE(iStatus == SIGSEGV || iStatus == (SIGSEGV | 0x80)) << iStatus;
    EXPECT_EQ(bodies(areaLines()), (Lines{"about to crash", "dying of SIGSEGV"}));
    EXPECT_EQ(bodies(lines(1)), Lines{"about to crash"});
}
