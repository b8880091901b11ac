// A shared ring through the exported functions.
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/Sandbox.h"

namespace {

using Multi = Sandbox;

TEST_F(Multi, LinesOfSeveralProcessesAreInOneBackup)
{
    const auto write = [&](int i) {
        ZEBU2_SetLockRetryTimes(1000);
        CHECK(ZEBU2_InitializeM(ring(), "writer", ZEBU2_OPT_NOFILL) == 0);
        CHECK(ZEBU2_GetLockRetryTimes() == 1000);
        CHECK(ZEBU2_PutLine(0, std::to_string(i).c_str()) == 0 && ZEBU2_FileBufferFlush() == 0);
    }; // without an end: the next one starts all the same
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(inChild([&] { write(i); }), 0);
    ASSERT_EQ(ZEBU2_InitializeM(ring(), "reader", 63), 0);
    ASSERT_EQ(ZEBU2_TraceBackupM(path("backup").c_str(), ZEBU2_BACKUP_NOLOCK), 0);
    const std::string copy = readFile(path("backup"));
    EXPECT_EQ(bodies(traceLines(copy)), (Lines{"0", "1", "2"}));
    EXPECT_NE(copy.find("**** writer           "), std::string::npos);
}

TEST_F(Multi, ManagementFileMadeAnewIsResultThree)
{
    writeFile(traceFile(2), "an old line\r\n\x1A");
    EXPECT_EQ(ZEBU2_InitializeM(ring(), "app", 0), 3);
    EXPECT_EQ(lastError(), 0x2700001D);
    EXPECT_EQ(ZEBU2_PutLine(0, "usable"), 0);
    EXPECT_NE(readFile(traceFile(2)).find("usable\r\n\x1A"), std::string::npos);
    unlink(path("mmap/app.mm").c_str());
    EXPECT_EQ(ZEBU2_PutLine(0, "refused"), -1);
    EXPECT_EQ(lastError(), 0x08000014);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
}

// stat, lock, the check of the length, unlock: nothing else enters the kernel.
TEST_F(Multi, LineCostsFourSystemCalls)
{
    constexpr int LINES = 20;
    const pid_t writer = startChild([&] {
        CHECK(ZEBU2_InitializeM(ring(), "app", 0) == 0);
        ZEBU2_SetShmThreshold(ZEBU2_LEVEL_OFF);
        CHECK(ZEBU2_PutLine(0, "the first one") == 0);
        CHECK(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0);
        raise(SIGSTOP);
        for (int i = 0; i < LINES; ++i)
            CHECK(ZEBU2_PutLine(0, "line") == 0);
        raise(SIGSTOP);
    });
    int status = 0;
    ASSERT_EQ(waitpid(writer, &status, 0), writer);
    if (WIFEXITED(status))
        GTEST_SKIP() << "no ptrace here";
    int stops = 0; // on entry and on return of each call, up to the signal behind the lines
    do {
        ASSERT_EQ(ptrace(PTRACE_SYSCALL, writer, nullptr, nullptr), 0);
        ASSERT_EQ(waitpid(writer, &status, 0), writer);
        ++stops;
    } while (WIFSTOPPED(status) && WSTOPSIG(status) == SIGTRAP);
    EXPECT_LE(stops / 2, LINES * 4 + 8); // and a few to raise the signal
    ASSERT_EQ(ptrace(PTRACE_CONT, writer, nullptr, nullptr), 0);
    EXPECT_EQ(waitForChild(writer), 0);
}

} // namespace
