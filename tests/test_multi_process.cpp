// A shared ring under several processes at once: the lock, lock-free operation, and processes that are
// killed.
#include <sys/ptrace.h>

#include "support/AreaConsumer.h"
#include "support/SharedRing.h"

namespace {

using MultiProcess = SharedRing;

// ---- The lock ------------------------------------------------------------------------------------

// Also those of a process that wanted no lock, as soon as another one in the ring wants it.
TEST_F(MultiProcess, LockHeldByAnotherFailsEveryOperationAndChangesNothing)
{
    const Ring lockFree = open(ZEBU2_OPT_NOLOCK);
    int iHeld = lockAsAnother(manageName()); // lock-free operation does not mind
    EXPECT_EQ(put(lockFree, "free"), 0);
    close(iHeld);
    const Ring ring = open();
    poke(0, 0);
    EXPECT_EQ(put(lockFree, "repaired"), 0); // by one that does not know yet that the other wants the lock
    EXPECT_NE(record().mode & ZEBU2_OPT_NOLOCK, 0u);
    EXPECT_EQ(put(ring, "locked"), 0);
    EXPECT_EQ(record().mode & ZEBU2_OPT_NOLOCK, 0u);
    const Ring second = make();
    for (const Ring* each : {&lockFree, &ring, &second})
        (*each)->setLockRetryTimes(5);
    iHeld = lockAsAnother(manageName());
    const std::string before = trace(1);
    for (const Result& each :
         {result(put(lockFree, "x")), result(put(ring, "x")), result(ring->bufferFlush()),
          result(ring->backupToFile(path("b").c_str(), 0)), result(ring->chFileAttr(0600)),
          result(ring->closeFile()), result(second->openFile())})
        EXPECT_EQ(each, Result(-1, ZEBU_EPOS_LOCK));
    EXPECT_EQ(trace(1), before);
    EXPECT_FALSE(exists(path("b")));

    // A signal ends a pause, but not the wait.
    const itimerval often = {{0, 1000}, {0, 1000}}, never = {};
    (void)signal(SIGALRM, [](int) {});
    ring->setLockWaitTime(20);
    const auto start = std::chrono::steady_clock::now();
    (void)setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_EQ(put(ring, "x"), -1);
    (void)setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4 * 20));
    close(iHeld);
    EXPECT_EQ(put(ring, "y") | put(lockFree, "z") | second->openFile(), 0);
    EXPECT_TRUE(data(1).starts_with(before.substr(0, before.find(mark())) + "y\r\nz\r\n"));
}

// A reader that takes its time: only ZEBU2_BACKUP_NOLOCK lets the others write meanwhile.
TEST_F(MultiProcess, BackupHoldsTheLockForAsLongAsItTakes)
{
    const Ring ring = open(ZEBU2_OPT_CURRENT_ONLY, 1 << 20, 1);
    fillTo(ring, 200000); // more than a pipe takes
    const std::string before = data(1), pipe = path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const int iFlag : {0, ZEBU2_BACKUP_NOLOCK}) {
        const pid_t child = startChild([&] {
            const Ring own = open(ZEBU2_OPT_CURRENT_ONLY | ZEBU2_OPT_NOSTARTLINE, 1 << 20, 1);
            CHECK(own->backupToFile(pipe.c_str(), iFlag) == 0);
        });
        std::ifstream in(pipe); // when the child has opened it as well
        EXPECT_EQ(put(ring, "meanwhile"), iFlag ? 0 : -1);
        const std::string copy(std::istreambuf_iterator<char>(in), {});
        EXPECT_EQ(waitForChild(child), 0);
        EXPECT_TRUE(copy == before) << copy.size();
    }
}

// ---- Many writers --------------------------------------------------------------------------------

// The first and the last number of each writer's lines in a text, where every line must be whole and none
// between them may be missing.
std::map<int, std::pair<int, int>> numbers(const std::string& text)
{
    std::map<int, std::pair<int, int>> found;
    for (const std::string& line : traceLines(text)) {
        int writer = 0, iNumber = 0;
        EXPECT_EQ(sscanf(areaSender(line).c_str(), "%d %d", &writer, &iNumber), 2) << line;
        EXPECT_EQ(iNumber, ++found.try_emplace(writer, iNumber, iNumber - 1).first->second.second) << writer;
    }
    return found;
}

// Processes that joined the ring and others that inherited it over a fork; it moves on thousands of times.
TEST_F(MultiProcess, EveryLineIsThereOnceAndWhole)
{
    constexpr int cs_iLines = 15000;
    const auto join = [&](int iOption, long lSize, long lCount) {
        Ring ring = make(iOption, lSize, lCount);
        ring->setLockWaitTime(0); // as long as it takes
        ring->setLockRetryTimes(1000000);
        CHECK(ring->openFile() != -1);
        return ring;
    };
    const Ring ring = join(ZEBU2_OPT_CURRENT_ONLY, 24576, 8);
    const auto backup = [&] {
        EXPECT_EQ(ring->backupToFile(path("backup").c_str(), 0), 0);
        return numbers(readFile(path("backup")));
    };
    std::vector<pid_t> writers;
    for (int w = 1; w <= 4; ++w) {
        writers.push_back(startChild([&, w] {
            const Ring own = w % 2 ? join(0, 4096, 3) : ring;
            for (int i = 0; i < cs_iLines; ++i)
                CHECK(put(own, areaMessage(std::to_string(w), i)) == 0);
        }));
    }
    (void)backup(); // what is there at one moment has no gaps
    for (const pid_t writer : writers)
        EXPECT_EQ(waitForChild(writer), 0);
    int iLines = 0;
    for (const auto& [writer, range] : backup()) {
        EXPECT_EQ(range.second, cs_iLines - 1) << writer;
        iLines += range.second - range.first + 1;
    }
    EXPECT_GE(iLines, 150); // of 600 bytes on average, in seven or eight files of 24 KiB
}

// ---- Killed writers ------------------------------------------------------------------------------

// Looks at the ring from outside after every single instruction of a write, as if the writer ended there:
// with the record or without it, all lines acknowledged before must be found, and no torn one.
class MultiKillPoint : public MultiProcess
{
protected:
    void SetUp() override { SKIP_SINGLE_STEPS(); }
    static bool isValid(const tagZEBU_MANAGEMENT_DATA& rec)
    {
        return rec.magic == 0x5542455A && rec.fileSize == 4096 && rec.fileNum == 2 && rec.currentFile - 1 < 2;
    }
    void expectSound() const
    {
        const tagZEBU_MANAGEMENT_DATA rec = record();
        expectWhole(data(1), kept);
        ASSERT_TRUE(isValid(rec) || !bRecordValid);
        if (!isValid(rec))
            return;
        const int iFile = static_cast<int>(rec.currentFile);
        const std::string current = trace(iFile).substr(0, rec.writeOffset);
        expectWhole(current, iFile == 1 ? kept : "");
        // Where the record says that lines are, they are found without it as well.
        ASSERT_TRUE(data(iFile).starts_with(current));
    }
    // Behind the text before: nothing, a header, the line, or both.
    void expectWhole(const std::string& text, const std::string& before) const
    {
        ASSERT_TRUE(text.starts_with(before)) << text;
        std::string more = text.substr(before.size());
        if (more == unacknowledged)
            return;
        if (more.ends_with(m_newLine))
            more.resize(more.size() - m_newLine.size());
        ASSERT_TRUE(more.empty() || (more.starts_with("**** ") && splitLines(more).size() == 2 &&
                                     more.find("message(LANG=") != more.npos && more.ends_with(")\r\n")))
            << more;
    }

    // Runs one write of a fresh process instruction by instruction, once it was made difficult.
    void stepThroughWrite(const std::function<void()>& damage = [] {})
    {
        kept = data(1);
        const pid_t writer = startChild([&] {
            const Ring ring = open(ZEBU2_OPT_NOSTARTLINE, 4096, 2);
            CHECK(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0);
            damage();
            raise(SIGSTOP);
            CHECK(ring->putMessage(m_newLine.data(), m_newLine.size()) == 0);
            _exit(0);
        });
        int iStatus = 0;
        ASSERT_EQ(waitpid(writer, &iStatus, 0), writer);
        if (WIFEXITED(iStatus))
            GTEST_SKIP() << "no ptrace here";
        bRecordValid = isValid(record());
        unacknowledged = data(1).substr(kept.size());
        std::string seen;
        int iChanges = 0;
        for (long lStill = 0; WIFSTOPPED(iStatus) && !HasFatalFailure(); ++lStill) {
            const std::string now = readFile(manageName()) + trace(1) + trace(2);
            if (now != seen) {
                seen = now;
                lStill = 0;
                ++iChanges;
                expectSound();
            }
            // Reading the clock repeats itself while it ticks, which a machine too busy to step fast never
            // leaves, and a long search changes nothing: go on from the next system call then.
            const auto eRequest = lStill < 3000 ? PTRACE_SINGLESTEP : PTRACE_SYSCALL;
            if (eRequest == PTRACE_SYSCALL)
                lStill = 0;
            ASSERT_EQ(ptrace(eRequest, writer, nullptr, nullptr), 0);
            ASSERT_EQ(waitpid(writer, &iStatus, 0), writer);
        }
        if (WIFSTOPPED(iStatus))
            kill(writer, SIGKILL);
        EXPECT_EQ(iStatus, 0);
        EXPECT_GT(iChanges, 5);
    }

    const std::string m_newLine = "0000 the new line with a text of its own\r\n";
    bool bRecordValid = true;
    std::string kept;
    std::string unacknowledged;
};

TEST_F(MultiKillPoint, LineIntoTheCurrentFile)
{
    const std::function<void()> damages[] = {
        [] {},
        [&] { // the writer before was killed when its line was complete and the record not yet advanced
            const std::string text = std::string(m_newLine.size(), 's') + "\r\nstale";
            EXPECT_EQ(put(open(ZEBU2_OPT_NOSTARTLINE, 4096, 2), text), 0);
            poke(offsetof(tagZEBU_MANAGEMENT_DATA, writeOffset), static_cast<unsigned int>(kept.size()));
        },
        [&] { poke(0, 0); }, // the record is repaired first
        [&] {                // and is not valid again before all of it is right
            poke(offsetof(tagZEBU_MANAGEMENT_DATA, fileSize), 0);
            poke(offsetof(tagZEBU_MANAGEMENT_DATA, writeOffset), 4000);
        }};
    for (const auto& damage : damages) {
        base += "x";
        EXPECT_EQ(put(open(0, 4096, 2), "kept"), 0);
        stepThroughWrite(damage);
        EXPECT_EQ(data(1), kept + m_newLine);
    }
}

TEST_F(MultiKillPoint, LineThatMovesTheRingOnToAFileWithOldLines)
{
    const Ring ring = open(0, 4096, 2);
    fillTo(ring, 4000);
    EXPECT_EQ(put(ring, std::string(3500, 'o')), 0); // file 2
    EXPECT_EQ(put(ring, std::string(3500, 'n')), 0); // file 1
    fillTo(ring, 4040);
    stepThroughWrite();
    EXPECT_TRUE(data(2).ends_with(m_newLine));
}

} // namespace
