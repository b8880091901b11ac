// Appends to the trace area that are interrupted, stopped or killed at any instruction, and words beside the
// write offset that are not the library's. The processor runs an append instruction by instruction, with a
// signal after each.
#include <sys/prctl.h>

#include "mmap/AreaAppend.h"
#include "mmap/AreaUse.h"
#include "mmap/MMap.h"
#include "support/AreaConsumer.h"

using namespace std::chrono_literals;

#ifdef __x86_64__
static void setSingleStep(bool bOn)
{
    asm volatile("pushfq; andq $~0x100, (%%rsp); orq %0, (%%rsp); popfq" ::"r"(bOn ? 0x100L : 0L)
                 : "memory", "cc");
}
static void endSingleSteps(void* pContext)
{
    static_cast<ucontext_t*>(pContext)->uc_mcontext.gregs[REG_EFL] &= ~0x100L;
}
#else
static void setSingleStep(bool) {}
static void endSingleSteps(void*) {}
#endif

static const std::function<void()>* cs_pAtStep;
static const AreaConsumer* cs_pArea;
static int cs_iSteps, cs_iHeldSteps; // so far, and from the one on at which the guard was first held
static int cs_iAct; // the step to act at, which is the last; below 0: of those with the guard

static void onStep(int, siginfo_t*, void* pContext)
{
    ++cs_iSteps;
    if (cs_iHeldSteps != 0 || cs_pArea->guard() != 0)
        ++cs_iHeldSteps;
    if (cs_iAct != (cs_iAct < 0 ? -cs_iHeldSteps : cs_iSteps))
        return;
    endSingleSteps(pContext);
    (*cs_pAtStep)();
}

class Append : public Sandbox
{
protected:
    Append()
    {
        cs_pArea = &m_area;
        struct sigaction action = {};
        action.sa_sigaction = onStep;
        action.sa_flags = SA_NODEFER | SA_SIGINFO; // handlers step too
        (void)sigaction(SIGTRAP, &action, nullptr);
    }

    void append(const std::string& line)
    {
        CHECK(ZEBU_AppendToArea(m_area.map(), 65536, line.data(), static_cast<uint32_t>(line.size())) ==
              ZEBU_APPEND_STORED);
        ++m_uAppended;
    }

    // Appends a line step by step, and does something at one of them.
    void step(const std::string& line, int iAct, const std::function<void()>& act)
    {
        cs_pAtStep = &act;
        cs_iAct = iAct;
        cs_iSteps = cs_iHeldSteps = 0;
        setSingleStep(true);
        append(line);
        setSingleStep(false);
    }

    // The same at every step, each time with another line: all of them where code is good.
    void stepEach(int iFirstLine, const std::function<void(int, int)>& act)
    {
        step(lineOf("outer", 0), 0, [] {});
        const int iSteps = cs_iSteps;
        for (int n = 1; n <= iSteps; n += iSteps / 200 + 1) {
            step(lineOf("outer", iFirstLine + n), n, [&] { act(n, iSteps); });
            m_area.drain();
        }
    }

    static std::string lineOf(const char* pszSender, int iNumber)
    {
        return std::string(68, ' ') + areaMessage(pszSender, iNumber) + "\r\n";
    }
    static long us() { return std::chrono::steady_clock::now().time_since_epoch() / 1us; }
    static long ms() { return us() / 1000; }
    // How often this thread has waited, which no busy machine makes more often.
    static long sleeps()
    {
        rusage usage{};
        (void)getrusage(RUSAGE_THREAD, &usage);
        return usage.ru_nvcsw;
    }

    AreaConsumer m_area{(startArea(), areaFile())};
    std::atomic<size_t> m_uAppended{0};
};

// At every instruction of an append a handler appends two lines, and at one of the first of these another.
TEST_F(Append, HandlersThatInterruptAnyInstructionLoseAndTearNothing)
{
    SKIP_SINGLE_STEPS();
    stepEach(0, [&](int n, int iSteps) {
        step(lineOf("handler", n), n * 7919 % iSteps, [&] { append(lineOf("nested", n)); });
        append(lineOf("second", n));
    });
    EXPECT_GT(m_uAppended, 300U);
    EXPECT_EQ(m_area.guard(), 0u);
    m_area.expectSeen(m_uAppended);
    EXPECT_EQ(m_area.m_iBlank, 0); // nobody was passed over
}

// At every instruction at which the guard is free another thread puts a line, and the consumer takes it: what
// the append has seen of the header by then is of two times.
TEST_F(Append, OthersThatGoOnMeanwhileTakeNoRoom)
{
    SKIP_SINGLE_STEPS();
    int iOthers = 0;
    stepEach(300, [&](int, int) {
        if (m_area.guard() != 0)
            return;
        inThreads(1, [&](int) { m_area.put("other", iOthers++); });
        m_area.drain();
    });
    EXPECT_GT(iOthers, 20);
    m_area.expectSeen(m_uAppended + static_cast<size_t>(iOthers));
}

// A child acts at one of the instructions at which it holds the guard; another one puts lines then.
TEST_F(Append, HoldersThatDoNotGoOnArePassedOver)
{
    SKIP_SINGLE_STEPS();
    const std::string held = lineOf("held", 300), last = lineOf("last", 0);
    // How it ends, whether a handler of it has appended a line before, and all lines then.
    const std::tuple<int, bool, size_t> ends[] = {
        {SIGKILL, false, 2}, {SIGSTOP, false, 3}, {SIGKILL, true, 4}};
    for (const auto& [iSignal, bHandler, uLines] : ends) {
        long lFastest = 1000;
        for (int iAct = -1; iAct > -80; iAct -= 13) {
            SCOPED_TRACE(testing::Message() << iSignal << ' ' << bHandler << ' ' << iAct);
            const pid_t iChild = startChild([&, iSignal = iSignal, bHandler = bHandler] {
                step(held, iAct, [&] {
                    if (bHandler)
                        append(last);
                    (void)raise(iSignal);
                });
            });
            ASSERT_EQ(waitid(P_PID, static_cast<id_t>(iChild), nullptr, WEXITED | WSTOPPED | WNOWAIT), 0);
            const long lBegun = ms();
            for (const int i : {0, 1})
                EXPECT_EQ(inChild([&] { m_area.put("after", i); }), 0);
            lFastest = std::min(lFastest, ms() - lBegun);
            m_area.drain(); // as a consumer does; who was passed over goes on after that
            (void)kill(iChild, SIGCONT);
            (void)waitForChild(iChild);
            m_area.expectSeen(uLines);
            EXPECT_LE(std::exchange(m_area.m_iBlank, 0), 1);
        }
        EXPECT_TRUE(100 <= lFastest && lFastest < 150) << iSignal << ' ' << bHandler << ' ' << lFastest;
    }
}

TEST_F(Append, WordsOfOthersAreNoHoldersAndStay)
{
    int n = 0;
    for (const uint32_t uWord : {1u, 7u, 0xFFFFFFFFu, 0xA5A5A5A5u, 0x5A5A5A5Au, 0xDEADBEEFu, 4194303u}) {
        m_area.setGuard(uWord);
        const long lBefore = sleeps();
        for (int i = 0; i < 5; ++i)
            m_area.put("put", ++n);
        EXPECT_LT(sleeps() - lBefore, 10) << uWord;
        EXPECT_EQ(m_area.guard(), uWord);
    }
    // Also while they are stored again and again.
    const std::jthread scribbler([&](const std::stop_token& stop) {
        while (!stop.stop_requested())
            m_area.setGuard(0xDEADBEEF);
    });
    for (int i = 0; i < 20000; ++i) {
        m_area.put("put", ++n);
        m_area.drain();
    }
    m_area.expectSeen(static_cast<size_t>(n));
}

// A handler just before its thread's append has the guard: an append elsewhere, which has it, is waited for.
TEST_F(Append, AHandlerTakesNobodyElsesGuardForItsThreads)
{
    SKIP_SINGLE_STEPS();
    for (int n = 0; n < 2; ++n) // the first finds functions of libc
        step(lineOf("outer", n), 0, [] {});
    step(lineOf("outer", 2), cs_iSteps - cs_iHeldSteps - 1, [&] {
        m_area.setGuard(0xE9C30000);
        const long lBegun = ms();
        append(lineOf("handler", 1));
        EXPECT_GE(ms() - lBegun, 50);
    });
    m_area.expectSeen(4);
}

// Words like the library's, of an append that was never there: one of every second is waited for. Waiting is
// counted in sleeps, of which 0.11 s hold 2,200 at most and fewer where the process waits for a processor.
TEST_F(Append, AHostileGuardCostsATenthOfTheTime)
{
    const std::jthread hostile([&](const std::stop_token& stop) {
        for (uint32_t u = 0; !stop.stop_requested(); ++u, usleep(1000))
            m_area.setGuard(0xE9C30002 | (u & 0x1FFF) << 3);
    });
    (void)prctl(PR_SET_TIMERSLACK, 1);
    const long lBegun = ms();
    long lSlept = 0, lLongest = 0, lFastest = 1000;
    for (int n = 0; ms() - lBegun < 3000; ++n, usleep(1000)) {
        const long lBefore = sleeps(), lPut = us();
        m_area.put("put", n);
        const long lTook = us() - lPut, lSleeps = sleeps() - lBefore;
        lSlept += lSleeps;
        if (lSleeps == 0 && lLongest >= 100'000)
            lFastest = std::min(lFastest, lTook); // dropped
        lLongest = std::max(lLongest, lTook);
        m_area.drain();
    }
    EXPECT_GE(lLongest, 100'000);
    EXPECT_LT(lSlept, 3 * 2200);
    EXPECT_LT(lFastest, 40);
    EXPECT_EQ(m_area.m_iTorn, 0);
}

// By threads with and without a context, which are counted in two ways.
TEST_F(Append, TheAreaIsMappedUntilEverybodyHasLeftIt)
{
    for (const bool bContext : {false, true}) {
        std::atomic<bool> bEntered{false}, bStopped{false};
        const std::jthread user([&] {
            (void)(bContext && ZEBU2_GetLogLevel());
            const ZEBUAreaUse use;
            bEntered = true;
            usleep(50'000);
            EXPECT_FALSE(bStopped) << bContext;
        });
        while (!bEntered)
            std::this_thread::yield();
        stop();
        bStopped = true;
        startArea();
    }
}

// Lines of one limit after the other, with whether they are dropped.
TEST(RateLimit, PeriodsEndByTheTimesOfLines)
{
    const std::tuple<int, int, std::vector<std::pair<timeval, int>>> limits[] = {
        {10,
         3,
         {{{0, 5}, 0}, {{1, 0}, 0}, {{2, 0}, 0}, {{3, 0}, 1}, {{10, 4}, 1}, {{10, 5}, 0}, {{10, 6}, 0}}},
        // Up to the count a line belongs to the old period, however late it is.
        {10, 2, {{{100, 0}, 0}, {{200, 0}, 0}, {{200, 0}, 0}, {{200, 0}, 0}, {{209, 0}, 1}}},
        // Late by a moment is no clock that was set back; by more than a second it is.
        {10, 1, {{{100, 500}, 0}, {{100, 0}, 1}, {{99, 600}, 1}, {{99, 400}, 0}, {{99, 500}, 1}}},
    };
    for (const auto& [iInterval, iMax, lines] : limits) {
        ZEBU_initMMapLimitValues(iInterval, iMax);
        fs_zebu_last_update_time.tv_sec = 0;
        fs_zebu_last_update_time.tv_usec = 0;
        for (const auto& [time, iDropped] : lines)
            EXPECT_EQ(fs_isMsgTooMany(&time), iDropped)
                << iInterval << ' ' << iMax << ": " << time.tv_sec << ' ' << time.tv_usec;
    }
    ZEBU_initMMapLimitValues(86401, -1); // out of range: as it was
    EXPECT_EQ(fs_zebu_mmap_interval_sec.tv_sec, 10);
    EXPECT_EQ(g_zebu_mmap_output_max, 1u);
}
