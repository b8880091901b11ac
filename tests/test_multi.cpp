// A shared ring through the exported functions.
#include <unistd.h>

#include "support/Sandbox.h"

namespace {

using Multi = Sandbox;

TEST_F(Multi, LinesOfSeveralProcessesAreInOneBackup)
{
    ASSERT_EQ(chdir(path("").c_str()), 0);
    const tagZEBU_LOGFILE_SPEC ring = {65536, 3, "app"}; // without a directory
    const auto write = [&](int i) {
        ZEBU2_SetLockRetryTimes(1000);
        CHECK(ZEBU2_InitializeM(&ring, "writer", ZEBU2_OPT_NOFILL) == 0);
        CHECK(ZEBU2_GetLockRetryTimes() == 1000);
        CHECK(ZEBU2_PutLine(0, std::to_string(i).c_str()) == 0 && ZEBU2_FileBufferFlush() == 0);
    }; // without an end: the next one starts all the same
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(inChild([&] { write(i); }), 0);
    ASSERT_EQ(unlink(path("mmap/app.mm").c_str()), 0);
    ASSERT_EQ(result(ZEBU2_InitializeM(&ring, "reader", 63)), Result(3, 0x2700001D));
    ASSERT_EQ(ZEBU2_TraceBackupM(path("backup").c_str(), ZEBU2_BACKUP_NOLOCK), 0);
    const std::string copy = readFile(path("backup"));
    EXPECT_EQ(bodies(traceLines(copy)), (Lines{"0", "1", "2"}));
    EXPECT_NE(copy.find("**** writer           "), std::string::npos);
    ASSERT_EQ(unlink(path("mmap/app.mm").c_str()), 0);
    EXPECT_EQ(result(ZEBU2_PutLine(0, "refused")), Result(-1, 0x08000014));
    EXPECT_EQ(ZEBU2_Finalize(), 0);
}

} // namespace
