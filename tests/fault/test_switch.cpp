// A ring of one process that moves on is stopped before each of its calls of libc in turn, and another
// process tries to take the ring there.
#include <dlfcn.h>

#include <functional>

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
    // One switch with the rival's attempt before its call `lCall`, also without a free descriptor, when the
    // owner has to give one lock up before it takes the next. False when it makes fewer calls.
    bool run(long lCall, bool bLastDescriptor)
    {
        const int iStatus = inChild([&] {
            const Rival rival([&] { return takeRing(false); });
            CHECK(ZEBU2_Initialize(ring(4096), "app") == 0);
            putLine(std::string(4050, 'f'));
            arm(lCall, rival);
            if (bLastDescriptor)
                useUpDescriptors();
            plan()->iArmed = 1;
            const bool bPut = ZEBU2_PutLine(0, "next") == 0;
            plan()->iArmed = 0;
            CHECK(bLastDescriptor || (bPut && cs_iAnswer == cs_iRefused));
            CHECK(putAgain());
            rival.leave();
            const std::string all = ringFiles();
            CHECK(all.find("fff") != std::string::npos && all.find(" again\r") != std::string::npos);
            CHECK(!bPut || all.find(" next\r") != std::string::npos);
            CHECK(cs_iAnswer == cs_iRefused || all.find(" rival\r") != std::string::npos);
            _exit(plan()->lFired != 0 ? cs_iFired : 0);
        });
        return hasFired(iStatus, lCall);
    }

    // The start on a ring whose newest file is full, and the rival's before its call `lCall`, who stays or
    // has left when the start goes on.
    bool runStart(long lCall, bool bStays)
    {
        writeFile(traceFile(1), std::string(5000, 'f'));
        const int iStatus = inChild([&] {
            const Rival rival([&] { return takeRing(bStays); });
            ZEBU2_HINSTANCE hArea; // attached before: a start holds the area's lock for a moment
            CHECK(ZEBU2_CreateInstance(&hArea, nullptr, "area") == 1);
            arm(lCall, rival);
            plan()->iArmed = 1;
            const int iResult = ZEBU2_Initialize(ring(4096), "app");
            plan()->iArmed = 0;
            const bool bTheirs = cs_iAnswer == cs_iTaken && bStays;
            CHECK(result(iResult) == (bTheirs ? Result(1, 0x06000016) : Result(0, 0)));
            rival.leave();
            CHECK(cs_iAnswer == cs_iRefused || ringFiles().find(" rival\r") != std::string::npos);
            _exit(plan()->lFired != 0 ? cs_iFired : 0);
        });
        return hasFired(iStatus, lCall);
    }

private:
    static constexpr int cs_iFired = 3, cs_iRefused = 4, cs_iTaken = 5;

    static ZebuFault* plan()
    {
        const auto pPlan = static_cast<ZebuFault*>(dlsym(RTLD_DEFAULT, ZEBU_FAULT_PLAN));
        CHECK(pPlan != nullptr);
        return pPlan;
    }
    static void arm(long lCall, const Rival& rival)
    {
        alarm(60);
        cs_pRival = &rival;
        cs_iAnswer = cs_iRefused;
        *plan() = {"*", 0, lCall, lCall, 0, 0, 0, 0, [] { cs_iAnswer = cs_pRival->ask(); }};
    }
    bool hasFired(int iStatus, long lCall) const
    {
        EXPECT_TRUE(iStatus == 0 || iStatus == cs_iFired) << "call " << lCall << ", status " << iStatus;
        for (int n = 1; n <= 3; ++n)
            (void)unlink(traceFile(n).c_str());
        return iStatus != 0;
    }
    // What the rival does: puts a line where it can, and stays or leaves again.
    int takeRing(bool bStays)
    {
        if (result(ZEBU2_Initialize(ring(4096), "rival")) == Result(1, 0x06000016))
            return cs_iRefused;
        return ZEBU2_PutLine(0, "rival") == 0 && (bStays || ZEBU2_Finalize() == 0) ? cs_iTaken : -1;
    }
    std::string ringFiles() const
    {
        return readFile(traceFile(1)) + readFile(traceFile(2)) + readFile(traceFile(3));
    }
    static void useUpDescriptors()
    {
        const rlimit few = {64, 64};
        CHECK(setrlimit(RLIMIT_NOFILE, &few) == 0);
        while (dup(0) != -1)
            ;
    }
    static bool putAgain()
    {
        for (int i = 3; i < 64; ++i) { // every descriptor but the library's
            std::error_code ignored;
            const std::string name = "/proc/self/fd/" + std::to_string(i);
            if (std::filesystem::read_symlink(name, ignored) == "/dev/null")
                (void)close(i);
        }
        return ZEBU2_PutLine(0, "again") == 0;
    }
};

TEST_F(Switch, LetsNobodyInAtAnyMoment)
{
    const int iNull = open("/dev/null", O_RDWR);
    ASSERT_EQ(dup2(iNull, 0), 0);
    for (const bool bLastDescriptor : {false, true}) {
        long lCall = 1;
        while (run(lCall, bLastDescriptor))
            ++lCall;
        EXPECT_GT(lCall, 8);
    }
}

TEST_F(Switch, WhoStartsLooksAgain)
{
    for (const bool bStays : {false, true}) {
        long lCall = 1;
        while (runStart(lCall, bStays))
            ++lCall;
        EXPECT_GT(lCall, 8);
    }
}

} // namespace
