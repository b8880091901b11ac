// Names that others may plant in a directory that others can write: nothing outside is opened, emptied or
// made writable through them, and nothing waits for them.
#include "support/Sandbox.h"

namespace {

// A name that the start of a log, its backup or a change of its modes comes upon, and the failure then.
struct Way
{
    const char* pszName;
    const char* pszPlanted; // below the test's directory
    bool bShared;
    int iResult;
    int iFailure;
    const char* pszOwn; // where a link of the caller leads to; null: it is not followed or leads nowhere

    friend void PrintTo(const Way& way, std::ostream* pOut) { *pOut << way.pszName; }
};

const Way cs_ways[] = {
    {"TraceFile", "ring/app1.log", false, 1, 0x06000002, "../real"},
    {"SharedTraceFile", "ring/app1.log", true, 1, 0x27000002, "../real"},
    {"SharedOtherFile", "ring/app2.log", true, 1, 0x27000002, "../real"},
    {"ManagementFile", "ring/mmap/app.mm", true, 1, 0x27000002, "../../real"},
    {"Area", "mmap/zebu2mmap.mm", false, 2, ZEBU_EPOS_MMAP, nullptr},
    {"Backup", "ring/copy", false, -1, 0x0E000002, "../real"},
    {"ModeOfAnotherFile", "ring/app3.log", false, -1, 0x2500001B, nullptr},
};

class Planted : public Sandbox, public ::testing::WithParamInterface<Way>
{
protected:
    // The first result that is not 0, and its error value.
    Result call()
    {
        const tagZEBU_LOGFILE_SPEC* pRing = ring(4096, 3, "ring/app");
        int iResult = way.bShared ? ZEBU2_InitializeM(pRing, "links", 0) : ZEBU2_Initialize(pRing, "links");
        if (iResult == 0)
            iResult = ZEBU2_TraceBackup(path("ring/copy").c_str());
        if (iResult == 0)
            iResult = ZEBU2_ChFileAttr(0666);
        const Result first = result(iResult);
        stop();
        return first;
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
    age(path("victim"), 1000);
    if (!way.bShared && planted != path("ring/app1.log"))
        writeFile(path("ring/app1.log"), ""); // the newest of the ring's files
    for (const char* pszTarget : {"victim", "new"}) {
        ASSERT_EQ(symlink(path(pszTarget).c_str(), planted.c_str()), 0);
        ASSERT_EQ(lchown(planted.c_str(), 65534, 65534), 0);
        EXPECT_EQ(call(), Result(way.iResult, way.iFailure)) << pszTarget;
        EXPECT_EQ(readFile(path("victim")), "not a trace file");
        EXPECT_EQ(fileMode(path("victim")), 0600);
        EXPECT_FALSE(exists(path("new")));
        ASSERT_EQ(unlink(planted.c_str()), 0);
    }
    ASSERT_EQ(mkfifo(planted.c_str(), 0666), 0); // does not block
    (void)call();
    ASSERT_EQ(unlink(planted.c_str()), 0);
    if (way.pszOwn) {
        ASSERT_EQ(symlink(way.pszOwn, planted.c_str()), 0);
        EXPECT_GE(call().first, 0);
        EXPECT_TRUE(exists(path("real"))) << "the caller's own link is followed";
    }
}

INSTANTIATE_TEST_SUITE_P(At, Planted, ::testing::ValuesIn(cs_ways),
                         [](const auto& test) { return test.param.pszName; });

} // namespace
