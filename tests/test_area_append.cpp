// Appends to the trace area that are interrupted, stopped or killed at any instruction, and words beside the
// write offset that are not the library's. The processor runs an append instruction by instruction, with a
// signal after each.
#include <sys/ucontext.h>

#include "mmap/AreaAppend.h"
#include "mmap/AreaUse.h"
#include "mmap/MMap.h"
#include "support/AreaConsumer.h"

static long fs_ms()
{
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

#if defined(__SANITIZE_THREAD__) // delivers signals later
#define SKIP_STEPS() GTEST_SKIP() << "no single steps under this sanitizer"
#else
#define SKIP_STEPS() (void)0
#endif

static void setSingleStep(bool bOn)
{
    if (bOn)
        asm volatile("pushfq; orq $0x100, (%%rsp); popfq" ::: "memory", "cc");
    else
        asm volatile("pushfq; andq $~0x100, (%%rsp); popfq" ::: "memory", "cc");
}

static const std::function<void()>* cs_pAtStep;
static AreaConsumer* cs_pArea;
static long cs_lSteps,
    cs_lAct;               // steps so far, and the one to act at, which is the last; below 0: so many after
static long cs_lFirstHeld; // the one at which the guard was first held

static void onStep(int, siginfo_t*, void* pContext)
{
    ++cs_lSteps;
    if (cs_lFirstHeld == 0 && cs_pArea->guard() != 0)
        cs_lFirstHeld = cs_lSteps;
    if (cs_lAct < 0 && cs_lFirstHeld == 0)
        return;
    if (cs_lSteps != (cs_lAct >= 0 ? cs_lAct : cs_lFirstHeld - cs_lAct))
        return;
    static_cast<ucontext_t*>(pContext)->uc_mcontext.gregs[REG_EFL] &= ~0x100L;
    (*cs_pAtStep)();
}

class Append : public Sandbox
{
protected:
    Append()
    {
        startArea();
        m_pArea = std::make_unique<AreaConsumer>(areaFile());
        cs_pArea = m_pArea.get();
        struct sigaction action = {};
        action.sa_sigaction = onStep;
        action.sa_flags = SA_NODEFER | SA_SIGINFO; // handlers step too
        (void)sigaction(SIGTRAP, &action, nullptr);
    }

    // Appends a line step by step, and does something at one of them.
    void step(const std::string& line, long lAct, const std::function<void()>& act)
    {
        cs_pAtStep = &act;
        cs_lAct = lAct;
        cs_lSteps = cs_lFirstHeld = 0;
        setSingleStep(true);
        append(line);
        setSingleStep(false);
    }

    void append(const std::string& line)
    {
        CHECK(ZEBU_AppendToArea(m_pArea->map(), 65536, line.data(), static_cast<uint32_t>(line.size())) ==
              ZEBU_APPEND_STORED);
    }

    static std::string lineOf(const char* pszSender, int iNumber)
    {
        return std::string(68, ' ') + areaMessage(pszSender, iNumber) + "\r\n";
    }

    // All messages are there, once each and whole.
    void expectSeen(size_t uCount)
    {
        m_pArea->drain();
        EXPECT_EQ(m_pArea->m_iTorn, 0);
        EXPECT_EQ(m_pArea->m_seen.size(), uCount);
        for (const auto& [message, iCount] : m_pArea->m_seen)
            EXPECT_EQ(iCount, 1) << message;
    }

    std::unique_ptr<AreaConsumer> m_pArea;
};

// At every instruction of an append a handler appends two lines, and at one of the first of these another.
TEST_F(Append, HandlersThatInterruptAnyInstructionLoseAndTearNothing)
{
    SKIP_STEPS();
    step(lineOf("outer", 0), 0, [] {});
    const int iSteps = static_cast<int>(cs_lSteps),
              iStride = iSteps / 200 + 1; // all of them where code is good
    size_t uLines = 1;
    for (int n = 1; n <= iSteps; n += iStride) {
        const std::string outer = lineOf("outer", n), first = lineOf("handler", n);
        const std::string nested = lineOf("nested", n), second = lineOf("second", n);
        const std::function<void()> appendNested = [&] {
            append(nested);
            ++uLines;
        };
        step(outer, n, [&] {
            cs_pAtStep = &appendNested;
            cs_lAct = n + n * 7919 % iSteps;
            setSingleStep(true);
            append(first);
            setSingleStep(false);
            append(second);
            uLines += 2;
        });
        ++uLines;
        m_pArea->drain();
    }
    EXPECT_GT(uLines, 300U);
    expectSeen(uLines);
    EXPECT_EQ(m_pArea->m_iBlank, 0); // nobody was passed over
    EXPECT_EQ(m_pArea->guard(), 0u);
}

// At every instruction at which the guard is free another thread puts a line, and the consumer takes it: what
// the append has seen of the header by then is of two times.
TEST_F(Append, OthersThatGoOnMeanwhileTakeNoRoom)
{
    SKIP_STEPS();
    step(lineOf("first", 0), 0, [] {});
    const long lSteps = cs_lSteps, lStride = lSteps / 200 + 1;
    size_t uLines = 1;
    const std::function<void()> goOn = [&] {
        if (m_pArea->guard() != 0)
            return;
        inThreads(1, [&](int) { m_pArea->put("other", static_cast<int>(uLines)); });
        m_pArea->drain();
        ++uLines;
    };
    for (long n = 1; n <= lSteps; n += lStride) {
        step(lineOf("outer", 300 + static_cast<int>(n)), n, goOn);
        ++uLines;
        m_pArea->drain();
    }
    EXPECT_GT(uLines, 100U);
    expectSeen(uLines);
}

// A child acts at one of the instructions at which it holds the guard; another one puts lines then.
TEST_F(Append, HoldersThatDoNotGoOnArePassedOver)
{
    SKIP_STEPS();
    const std::string held = lineOf("held", 300), last = lineOf("last", 0);
    const std::tuple<const char*, std::function<void()>, size_t> acts[] = {
        {"killed", [] { (void)raise(SIGKILL); }, 2},
        {"stopped", [] { (void)raise(SIGSTOP); }, 3},
        {"crashed",
         [&] {
             append(last);
             _exit(0);
         },
         4}};
    for (const auto& [pszWhat, act, uLines] : acts) {
        long lFastest = 1000;
        for (long lAct = -1; lAct > -80; lAct -= 13) {
            m_pArea->m_seen.clear();
            const pid_t iChild = startChild([&, &act = act] { step(held, lAct, act); });
            siginfo_t info;
            ASSERT_EQ(waitid(P_PID, static_cast<id_t>(iChild), &info, WEXITED | WSTOPPED | WNOWAIT), 0);
            const long lBegun = fs_ms();
            EXPECT_EQ(inChild([&] {
                          m_pArea->put("after", 0);
                          m_pArea->put("after", 1);
                      }),
                      0);
            lFastest = std::min(lFastest, fs_ms() - lBegun);
            m_pArea->drain(); // as a consumer does; who was passed over goes on after that
            if (info.si_code == CLD_STOPPED)
                (void)kill(iChild, SIGCONT);
            (void)waitForChild(iChild);
            expectSeen(uLines);
            EXPECT_LE(m_pArea->m_iBlank, 1) << pszWhat << ' ' << lAct;
            m_pArea->m_iBlank = 0;
        }
        EXPECT_TRUE(100 <= lFastest && lFastest < 150) << pszWhat << ' ' << lFastest;
    }
}

TEST_F(Append, WordsOfOthersAreNoHoldersAndStay)
{
    int n = 0;
    for (const uint32_t uWord : {1u, 7u, 0xFFFFFFFFu, 0xA5A5A5A5u, 0x5A5A5A5Au, 0xDEADBEEFu, 4194303u}) {
        m_pArea->setGuard(uWord);
        const long lBegun = fs_ms();
        for (int i = 0; i < 5; ++i)
            m_pArea->put("put", ++n);
        EXPECT_LT(fs_ms() - lBegun, 100) << uWord;
        EXPECT_EQ(m_pArea->guard(), uWord);
    }
    // Also while they are stored again and again.
    std::atomic<bool> bDone{false};
    std::thread scribbler([&] {
        while (!bDone)
            m_pArea->setGuard(0xDEADBEEF);
    });
    for (int i = 0; i < 20000; ++i) {
        m_pArea->put("put", ++n);
        m_pArea->drain();
    }
    bDone = true;
    scribbler.join();
    expectSeen(static_cast<size_t>(n));
}

// Words like the library's, of an append that was never there: one of every second is waited for.
TEST_F(Append, AHostileGuardCostsATenthOfTheTime)
{
    std::atomic<bool> bDone{false};
    std::thread hostile([&] {
        for (uint32_t u = 0; !bDone; ++u) {
            m_pArea->setGuard(0xE9C30002 | (u & 0x1FFF) << 3);
            usleep(1000);
        }
    });
    const long lBegun = fs_ms();
    long lWaited = 0;
    for (int n = 0; fs_ms() - lBegun < 3000; ++n, usleep(1000)) {
        const long lPut = fs_ms();
        m_pArea->put("put", n);
        lWaited += fs_ms() - lPut;
        m_pArea->drain();
    }
    bDone = true;
    hostile.join();
    EXPECT_LT(lWaited, 600);
    EXPECT_EQ(m_pArea->m_iTorn, 0);
}

// By threads with and without a context, which are counted in two ways.
TEST_F(Append, TheAreaIsMappedUntilEverybodyHasLeftIt)
{
    for (const bool bContext : {false, true}) {
        std::atomic<bool> bEntered{false}, bStopped{false};
        std::thread user([&] {
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
        user.join();
        startArea();
    }
}

// Lines of one limit after the other, with whether they are dropped.
TEST(RateLimit, PeriodsEndByTheTimesOfLines)
{
    struct Line
    {
        timeval time;
        int iDropped;
    };
    const std::tuple<int, int, std::vector<Line>> limits[] = {
        {10,
         3,
         {{{0, 5}, 0}, {{1, 0}, 0}, {{2, 0}, 0}, {{3, 0}, 1}, {{10, 4}, 1}, {{10, 5}, 0}, {{10, 6}, 0}}},
        {10, 1, {{{100, 0}, 0}, {{109, 999999}, 1}, {{110, 0}, 0}, {{110, 0}, 1}}},
        // Up to the count a line belongs to the old period, however late it is.
        {10, 2, {{{100, 0}, 0}, {{200, 0}, 0}, {{200, 0}, 0}, {{200, 0}, 0}, {{209, 0}, 1}}},
        // Late by a moment is no clock that was set back; by more than a second it is.
        {10,
         1,
         {{{100, 500}, 0}, {{100, 0}, 1}, {{99, 600}, 1}, {{99, 400}, 0}, {{99, 500}, 1}, {{50, 0}, 0}}},
        // Masked lines come a second after the start of the period, without microseconds.
        {1, 1, {{{100, 0}, 0}, {{101, 0}, 0}, {{102, 0}, 0}}},
        {1, 1, {{{100, 1}, 0}, {{101, 0}, 1}, {{101, 0}, 1}}},
        {2, 1, {{{100, 0}, 0}, {{101, 0}, 1}}}};
    for (const auto& [iInterval, iMax, lines] : limits) {
        ZEBU_initMMapLimitValues(iInterval, iMax);
        fs_zebu_last_update_time.tv_sec = 0;
        fs_zebu_last_update_time.tv_usec = 0;
        for (const Line& line : lines)
            EXPECT_EQ(fs_isMsgTooMany(&line.time), line.iDropped)
                << iInterval << ' ' << iMax << ": " << line.time.tv_sec << ' ' << line.time.tv_usec;
    }
    ZEBU_initMMapLimitValues(86401, -1); // out of range: as it was
    EXPECT_EQ(fs_zebu_mmap_interval_sec.tv_sec, 2);
    EXPECT_EQ(g_zebu_mmap_output_max, 1u);
}
