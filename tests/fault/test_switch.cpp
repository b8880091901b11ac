// A ring of one process that moves on is stopped before each of its calls of libc in turn, and another
// process tries to take the ring there.
#include <dlfcn.h>
#include <sys/resource.h>

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
        for (int n = 1; n <= 3; ++n)
            (void)unlink(traceFile(n).c_str());
        const int iStatus = inChild([&] {
            alarm(60);
            const Rival rival([&] { // puts a line and leaves again, where it can
                if (result(ZEBU2_Initialize(ring(4096), "rival")) == Result(1, 0x06000016))
                    return cs_iRefused;
                return ZEBU2_PutLine(0, "rival") == 0 && ZEBU2_Finalize() == 0 ? cs_iTaken : -1;
            });
            cs_pRival = &rival;
            CHECK(ZEBU2_Initialize(ring(4096), "app") == 0);
            putLine(std::string(4050, 'f'));
            const auto pPlan = static_cast<ZebuFault*>(dlsym(RTLD_DEFAULT, ZEBU_FAULT_PLAN));
            CHECK(pPlan != nullptr);
            *pPlan = {"*", 0, lCall, lCall, 0, 0, 0, 0, [] { cs_iAnswer = cs_pRival->ask(); }};
            if (bLastDescriptor)
                useUpDescriptors();
            cs_iAnswer = cs_iRefused;
            pPlan->iArmed = 1;
            const bool bPut = ZEBU2_PutLine(0, "next") == 0;
            pPlan->iArmed = 0;
            CHECK(bLastDescriptor || (bPut && cs_iAnswer == cs_iRefused));
            CHECK(putAgain());
            rival.leave();
            // Whoever was told that a line is in the ring finds it there.
            std::string ringFiles;
            for (int n = 1; n <= 3; ++n)
                ringFiles += readFile(traceFile(n));
            CHECK(ringFiles.find("fff") != std::string::npos &&
                  ringFiles.find(" again\r") != std::string::npos);
            CHECK(!bPut || ringFiles.find(" next\r") != std::string::npos);
            CHECK(cs_iAnswer == cs_iRefused || ringFiles.find(" rival\r") != std::string::npos);
            _exit(pPlan->lFired != 0 ? cs_iFired : 0);
        });
        EXPECT_TRUE(iStatus == 0 || iStatus == cs_iFired) << "call " << lCall << ", status " << iStatus;
        return iStatus != 0;
    }

    static constexpr int cs_iFired = 3, cs_iRefused = 4, cs_iTaken = 5;

private:
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

} // namespace
