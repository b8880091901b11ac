// Names that others may plant in a directory that others can write: nothing outside is opened, emptied or
// made writable through them, and nothing waits for them.

#include "support/Sandbox.h"

namespace {

// One call of the library that comes upon a planted name, and the failure that it reports.
struct Way
{
    const char* pszName;
    const char* pszPlanted; // below the test's directory
    int (*call)(const tagZEBU_LOGFILE_SPEC* pRing, const std::string& prefix);
    int iResult;
    int iFailure;
    const char* pszOwn; // where a link of the caller leads to; null: it is not followed or leads nowhere

    friend void PrintTo(const Way& way, std::ostream* pOut) { *pOut << way.pszName; }
};

int start(const tagZEBU_LOGFILE_SPEC* pRing, const std::string&)
{
    return ZEBU2_Initialize(pRing, "links");
}

int startShared(const tagZEBU_LOGFILE_SPEC* pRing, const std::string&)
{
    return ZEBU2_InitializeM(pRing, "links", 0);
}

int backup(const tagZEBU_LOGFILE_SPEC* pRing, const std::string& prefix)
{
    return start(pRing, prefix) == 0 ? ZEBU2_TraceBackup((prefix + "-copy").c_str()) : -2;
}

int changeMode(const tagZEBU_LOGFILE_SPEC* pRing, const std::string& prefix)
{
    writeFile(prefix + "1.log", ""); // newer than what is planted
    return start(pRing, prefix) == 0 ? ZEBU2_ChFileAttr(0666) : -2;
}

const Way cs_ways[] = {
    {"TraceFile", "ring/app1.log", start, 1, 0x06000002, "../real"},
    {"SharedTraceFile", "ring/app1.log", startShared, 1, 0x27000002, "../real"},
    {"SharedOtherFile", "ring/app2.log", startShared, 1, 0x27000002, "../real"},
    {"ManagementFile", "ring/mmap/app.mm", startShared, 1, 0x27000002, "../../real"},
    {"Area", "mmap/zebu2mmap.mm", start, 2, ZEBU_EPOS_MMAP, nullptr},
    {"Backup", "ring/app-copy", backup, -1, 0x0E000002, "../real"},
    {"ModeOfAnotherFile", "ring/app3.log", changeMode, -1, 0x2500001B, nullptr},
};

class Planted : public Sandbox, public ::testing::WithParamInterface<Way>
{
protected:
    int call()
    {
        const int iResult = way.call(ring(4096, 3, "ring/app"), path("ring/app"));
        const int iFailure = lastError();
        EXPECT_EQ(ZEBU2_Finalize(), 0);
        EXPECT_TRUE(iResult == 0 || iFailure == way.iFailure) << iFailure;
        return iResult;
    }

    const Way& way = GetParam();
    const std::string planted = path(way.pszPlanted);
};

TEST_P(Planted, NothingIsDoneThroughIt)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can plant what belongs to another";
    alarm(20);
    for (const char* pszDirectory : {"ring", "ring/mmap", "mmap"}) {
        ASSERT_EQ(mkdir(path(pszDirectory).c_str(), 0777), 0);
        ASSERT_EQ(chmod(path(pszDirectory).c_str(), 0777), 0);
    }
    writeFile(path("victim"), "not a trace file");
    ASSERT_EQ(chmod(path("victim").c_str(), 0600), 0);
    age(path("victim"), 1000); // not the newest of the ring's files
    for (const char* pszTarget : {"victim", "new"}) {
        ASSERT_EQ(symlink(path(pszTarget).c_str(), planted.c_str()), 0);
        ASSERT_EQ(lchown(planted.c_str(), 65534, 65534), 0);
        EXPECT_EQ(call(), way.iResult) << pszTarget;
        EXPECT_EQ(readFile(path("victim")), "not a trace file");
        EXPECT_EQ(fileMode(path("victim")), 0600);
        EXPECT_FALSE(exists(path("new")));
        ASSERT_EQ(unlink(planted.c_str()), 0);
    }
    ASSERT_EQ(mkfifo(planted.c_str(), 0666), 0); // does not block
    (void)way.call(ring(4096, 3, "ring/app"), path("ring/app"));
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    ASSERT_EQ(unlink(planted.c_str()), 0);
    if (way.pszOwn) {
        ASSERT_EQ(symlink(way.pszOwn, planted.c_str()), 0);
        EXPECT_GE(call(), 0);
        EXPECT_TRUE(exists(path("real"))) << "the caller's own link is followed";
    }
}

INSTANTIATE_TEST_SUITE_P(At, Planted, ::testing::ValuesIn(cs_ways),
                         [](const auto& test) { return test.param.pszName; });

} // namespace
