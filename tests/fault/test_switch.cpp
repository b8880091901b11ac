// A ring of one process that moves on is stopped before each of its calls of libc in turn, and another
// process tries to take the ring there.
#include <dlfcn.h>

#include "fault/inject.h"
#include "support/Sandbox.h"

namespace {

// The process that tries: it starts before the owner does and waits for its moment.
class Rival
{
public:
    // `act` gives back what is to be told the owner.
    explicit Rival(const std::function<int()>& act)
    {
        CHECK(pipe(m_ask) == 0 && pipe(m_answer) == 0);
        m_iChild = startChild([&] {
            char c;
            (void)close(m_ask[1]);
            if (read(m_ask[0], &c, 1) != 1)
                return;
            const int iAnswer = act();
            CHECK(write(m_answer[1], &iAnswer, sizeof iAnswer) == sizeof iAnswer);
            (void)read(m_ask[0], &c, 1); // until it may leave
        });
        (void)close(m_ask[0]);
    }
    int ask() const
    {
        int iAnswer = -1;
        CHECK(write(m_ask[1], "", 1) == 1 && read(m_answer[0], &iAnswer, sizeof iAnswer) == sizeof iAnswer);
        return iAnswer;
    }
    void leave() const
    {
        (void)close(m_ask[1]);
        CHECK(waitForChild(m_iChild) == 0);
    }

private:
    int m_ask[2], m_answer[2];
    pid_t m_iChild;
};

const Rival* cs_pRival;
int cs_iAnswer;

class Switch : public Sandbox
{
protected:
    // Runs a scene with the rival's attempt before the owner's call 1, 2, ... of libc, as long as there are
    // so many. The rival takes the ring where it can, puts a line, and stays or leaves again.
    void atEachCall(bool bStays, const std::function<void(const Rival&)>& scene) const
    {
        int iStatus = cs_iFired;
        long lCall = 0;
        while (iStatus == cs_iFired) {
            ++lCall;
            iStatus = inChild([&] {
                const Rival rival([&] {
                    if (result(ZEBU2_Initialize(&m_spec, "rival")) == Result(1, 0x06000016))
                        return cs_iRefused;
                    return ZEBU2_PutLine(0, "rival") == 0 && (bStays || ZEBU2_Finalize() == 0) ? cs_iTaken
                                                                                               : -1;
                });
                alarm(60);
                cs_pRival = &rival;
                cs_iAnswer = cs_iRefused;
                *plan() = {"*", 0, lCall, lCall, 0, 0, 0, 0, [] { cs_iAnswer = cs_pRival->ask(); }};
                scene(rival);
                CHECK(cs_iAnswer == cs_iRefused || has(" rival\r"));
                _exit(plan()->lFired != 0 ? cs_iFired : 0);
            });
            for (int n = 1; n <= 3; ++n)
                (void)unlink(traceFile(n).c_str());
        }
        EXPECT_EQ(iStatus, 0) << "call " << lCall;
        EXPECT_GT(lCall, 8);
    }
    static int armed(const std::function<int()>& body)
    {
        plan()->iArmed = 1;
        const int iResult = body();
        plan()->iArmed = 0;
        return iResult;
    }
    bool has(const char* pszText) const
    {
        return (readFile(traceFile(1)) + readFile(traceFile(2)) + readFile(traceFile(3))).find(pszText) !=
               std::string::npos;
    }
    static ZebuFault* plan()
    {
        const auto pPlan = static_cast<ZebuFault*>(dlsym(RTLD_DEFAULT, ZEBU_FAULT_PLAN));
        CHECK(pPlan != nullptr);
        return pPlan;
    }

    const tagZEBU_LOGFILE_SPEC m_spec = *ring(4096);
    static inline pid_t m_forked = -1; // by a signal handler
    static inline std::atomic<bool> m_bInside{false};
    static inline std::string m_nextFile;
    static constexpr int cs_iFired = 3, cs_iRefused = 4, cs_iTaken = 5;
};

// Also without a free descriptor, when the owner has to give one lock up before it takes the next.
TEST_F(Switch, LetsNobodyInAtAnyMoment)
{
    for (const bool bLastDescriptor : {false, true}) {
        atEachCall(false, [&](const Rival& rival) {
            CHECK(ZEBU2_Initialize(&m_spec, "app") == 0);
            putLine(std::string(4050, 'f'));
            const rlimit few = {64, 64};
            std::vector<int> used;
            CHECK(!bLastDescriptor || setrlimit(RLIMIT_NOFILE, &few) == 0);
            for (int iFd; bLastDescriptor && (iFd = dup(1)) != -1;)
                used.push_back(iFd);
            const bool bPut = armed([] { return ZEBU2_PutLine(0, "next"); }) == 0;
            CHECK(bLastDescriptor || (bPut && cs_iAnswer == cs_iRefused));
            for (const int iFd : used)
                (void)close(iFd);
            CHECK(ZEBU2_PutLine(0, "again") == 0);
            rival.leave();
            CHECK(has("fff") && has(" again\r") && (!bPut || has(" next\r")));
        });
    }
}

// On a ring whose newest file is full.
TEST_F(Switch, WhoStartsLooksAgain)
{
    for (const bool bStays : {false, true}) {
        atEachCall(bStays, [&](const Rival& rival) {
            writeFile(traceFile(1), std::string(5000, 'f'));
            ZEBU2_HINSTANCE hArea; // attached before: a start holds the area's lock for a moment
            CHECK(ZEBU2_CreateInstance(&hArea, nullptr, "area") == 1);
            const int iResult = armed([&] { return ZEBU2_Initialize(&m_spec, "app"); });
            const bool bTheirs = cs_iAnswer == cs_iTaken && bStays;
            CHECK(result(iResult) == (bTheirs ? Result(1, 0x06000016) : Result(0, 0)));
            rival.leave();
        });
    }
}

// A handler forks that interrupted a conversion of the time, for which the thread that moves on waits.
TEST_F(Switch, AForkInsideAConversionOfTheTimeEnds)
{
    m_nextFile = traceFile(2);
    passInChild([&] {
        alarm(30);
        (void)signal(SIGUSR1, [](int) { m_forked = fork(); });
        CHECK(ZEBU2_InitializeM(&m_spec, "app", ZEBU2_OPT_CURRENT_ONLY) == 0);
        putLine(std::string(3500, 'f')); // this thread knows the second then
        *plan() = {"localtime_r", 0, 1, 1, 0, 0, 0, 0, [] {
                       m_bInside = true;
                       for (int i = 0; i < 1000 && !exists(m_nextFile); ++i)
                           usleep(1000);
                       (void)raise(SIGUSR1); // its header is made, or about to be
                   }};
        std::jthread interrupted([&] {
            const int iPut = armed([] { return ZEBU2_PutLine(0, "interrupted"); });
            if (m_forked == 0)
                _exit(iPut);
        });
        while (!m_bInside)
            std::this_thread::yield();
        putLine(std::string(500, 'n'));
        interrupted.join();
        CHECK(waitForChild(m_forked) == 0 && has("nnn\r") && has(" interrupted\r"));
    });
}

} // namespace
