// A shared ring whose record or files somebody damaged, removed or cut, and what cannot be opened.
#include "support/SharedRing.h"

namespace {

using MultiDamage = SharedRing;

// ---- The record ----------------------------------------------------------------------------------

TEST_F(MultiDamage, InvalidRecordIsRepairedByWhoeverMeetsItFirst)
{
    const std::pair<size_t, unsigned int> cases[] = {{0, 0x5542455B}, {8, 4095}, {8, 16777217}, {12, 0},
                                                     {12, 65},        {20, 0},   {20, 4}};
    const Ring first = open();
    const Ring second = open(ZEBU2_OPT_NOSTARTLINE);
    for (const auto& [uOffset, uValue] : cases) {
        const std::string before = data(1);
        poke(uOffset, uValue);
        ASSERT_EQ(put(second, "repaired") | put(first, "goes on"), 0);
        EXPECT_EQ(data(1), before + "repaired\r\ngoes on\r\n") << uOffset << ' ' << uValue;
        EXPECT_EQ(record().writeOffset, data(1).size());
        EXPECT_EQ(record().mode, 0xFFFFFFC0u);
    }
}

TEST_F(MultiDamage, ManagementFileRemovedReplacedOrEmptied)
{
    const Ring ring = open();
    ASSERT_EQ(rename(manageName().c_str(), path("kept").c_str()), 0);
    EXPECT_EQ(failure(put(ring, "lost")), Failure(-1, ZEBU_EPOS_STAT, ENOENT));
    writeFile(manageName(), readFile(path("kept")));
    EXPECT_EQ(failure(put(ring, "lost")), Failure(-1, ZEBU_EPOS_MISMATCH, 0));
    ASSERT_EQ(rename(path("kept").c_str(), manageName().c_str()), 0);
    EXPECT_EQ(put(ring, "line"), 0);

    const std::string before = data(1);
    ASSERT_EQ(truncate(manageName().c_str(), 0), 0);
    EXPECT_EQ(ring->bufferFlush(), 0);
    ASSERT_EQ(truncate(manageName().c_str(), 0), 0);
    EXPECT_EQ(put(ring, "next"), 0);
    EXPECT_EQ(data(1), before + "next\r\n");
    EXPECT_EQ(readFile(manageName()).size(), 64u);
}

// ---- The trace files -----------------------------------------------------------------------------

// Lines go on being written, and can be found without the record, also those of a process that mapped the
// file before.
TEST_F(MultiDamage, TraceFileCutOrRemovedWhileItIsMapped)
{
    for (const int iOption : {0, ZEBU2_OPT_NOFILL}) {
        for (const size_t uLength : {0UL, 200UL, 4026UL}) {
            base = path("cut") + std::to_string(iOption) + std::to_string(uLength);
            const Ring first = open(iOption);
            const Ring second = open(iOption);
            fillTo(first, 4028);
            const std::string kept = data(1).substr(0, uLength);
            ASSERT_EQ(uLength ? truncate(traceName(1).c_str(), static_cast<off_t>(uLength))
                              : unlink(traceName(1).c_str()),
                      0);
            ASSERT_EQ(put(first, "1") | put(second, "2"), 0);
            EXPECT_EQ(trace(1).size(), 4096u);
            EXPECT_EQ(data(1).substr(4026), "\r\n1\r\n2\r\n") << iOption << ' ' << uLength;
            EXPECT_EQ(data(1).substr(0, uLength), kept);
        }
    }
}

// Nobody saw the file shrink: what is lost is not marked, and the line goes where the record says.
TEST_F(MultiDamage, TraceFileCutWhileNobodyHasItMapped)
{
    for (const int iOption : {0, ZEBU2_OPT_NOFILL}) {
        base += "x";
        fillTo(open(iOption), 3000);
        const std::string kept = trace(1).substr(0, 200);
        ASSERT_EQ(truncate(traceName(1).c_str(), 200), 0);
        EXPECT_EQ(put(open(iOption | ZEBU2_OPT_NOSTARTLINE), "line"), 0);
        EXPECT_TRUE(trace(1).starts_with(kept + std::string(2800, iOption ? '\0' : ' ') + "line\r\n"))
            << iOption;
    }
}

// The file of the record comes first, also for a line that would not fit into it.
TEST_F(MultiDamage, TraceFileThatCannotBeOpenedEndsEveryWriteUntilItCan)
{
    const Ring ring = open(ZEBU2_OPT_CURRENT_ONLY);
    ASSERT_EQ(mkdir(traceName(2).c_str(), 0700), 0);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(failure(put(ring, std::string(4100, 'x'))), Failure(-1, ZEBU_EPOS_OPEN, EISDIR));
        EXPECT_EQ(record().currentFile, 2u);
        EXPECT_EQ(failure(ring->bufferFlush()), Failure(-1, ZEBU_EPOS_FLUSH, EINVAL)); // no mapping
    }
    ASSERT_EQ(rmdir(traceName(2).c_str()), 0);
    EXPECT_EQ(put(ring, std::string(4100, 'x')), 0);
}

TEST_F(MultiDamage, FlushOfAnOffsetBehindTheMappingIsForTheKernelToJudge)
{
    const Ring ring = open(0, 5000); // in two pages
    poke(offsetof(tagZEBU_MANAGEMENT_DATA, writeOffset), 6000);
    EXPECT_EQ(ring->bufferFlush(), 0);
    poke(offsetof(tagZEBU_MANAGEMENT_DATA, writeOffset), 0xFFFFFFFF);
    EXPECT_EQ(failure(ring->bufferFlush()), Failure(-1, ZEBU_EPOS_FLUSH, ENOMEM));
}

// A daemon closes all it has, and opens what it needs. Without the lock, the mappings are enough.
TEST_F(MultiDamage, DescriptorsClosedBehindTheLibrary)
{
    const auto of = [](int iResult) { return iResult == 0 ? Failure() : failure(iResult); };
    const Failure good, locked = {-1, ZEBU_EPOS_LOCK, EBADF};
    // The option; whether the application takes the numbers; what a line and a flush give, and closing,
    // twice.
    const std::tuple<int, bool, Failure, Failure> cases[] = {
        {ZEBU2_OPT_NOLOCK, false, good, {-1, ZEBU_EPOS_CLOSE, EBADF}}, // the descriptors stay as they are
        {0, false, locked, locked},
        {ZEBU2_OPT_NOLOCK, true, good, good},
        {0, true, {-1, ZEBU_EPOS_MISMATCH, 0}, good}};
    for (const auto& [iOption, bReused, written, closed] : cases) {
        base += "x";
        EXPECT_EQ(inChild([&, iOption = iOption, bReused = bReused, written = written, closed = closed] {
                      const Ring ring = open(iOption | ZEBU2_OPT_NOSTARTLINE);
                      for (int iFd = 3; iFd < 100; ++iFd)
                          (void)close(iFd);
                      writeFile(path("mine"), "mine");
                      for (int i = 0; i < 20 && bReused; ++i)
                          CHECK(::open(path("mine").c_str(), O_RDWR) == i + 3);
                      CHECK(of(put(ring, "line")) == written);
                      if (iOption && !bReused)
                          CHECK(ring->bufferFlush() == 0 && ring->backupToFile(path("b").c_str(), 0) == 0 &&
                                readFile(path("b")).ends_with("line\r\n"));
                      CHECK(of(ring->closeFile()) == closed && of(ring->closeFile()) == closed);
                      CHECK(fcntl(4, F_GETFD) == (bReused ? 0 : -1) && readFile(path("mine")) == "mine");
                      _exit(0);
                  }),
                  0)
            << iOption << bReused;
        EXPECT_EQ(data(1).ends_with("line\r\n"), written == good) << iOption << bReused;
    }
}

// A store into a hole of a file on a full disk would kill the process.
TEST_F(MultiDamage, FullDiskIsAFailureAndNoSignal)
{
    if (!enterSmallDisk())
        GTEST_SKIP() << "no mount namespaces here";
    base = "/opt/full/app";
    const Failure full = {-1, ZEBU_EPOS_WRITE, ENOSPC};
    EXPECT_EQ(failure(make(0, 32768)->openFile()), full); // three files do not fit
    for (int n = 1; n <= 3; ++n)
        unlink(traceName(n).c_str());
    const Ring ring = open(ZEBU2_OPT_NOFILL | ZEBU2_OPT_CURRENT_ONLY, 32768);
    fillTo(ring, 32000);
    writeFile("/opt/full/rest", std::string(65536, 'x'));
    EXPECT_EQ(failure(put(ring, std::string(1000, 'x'))), full); // the next file, nothing but a hole
    writeFile("/opt/full/rest", "");
    EXPECT_EQ(put(ring, "line") | ring->closeFile(), 0);

    std::filesystem::resize_file(traceName(2), 0);
    std::filesystem::resize_file(traceName(2), 32768);
    writeFile("/opt/full/rest", std::string(65536, 'x'));
    EXPECT_EQ(failure(ring->openFile()), full); // as long as it should be, and a hole
}

} // namespace
