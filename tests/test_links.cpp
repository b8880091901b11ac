// Names that others may plant in a directory that others can write: nothing outside is opened, emptied or
// made writable through them, and nothing waits for them.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/Sandbox.h"

namespace {

constexpr uid_t cs_iNobody = 65534;

// One call of the library that comes upon a planted name, and the failure that it reports.
struct Way
{
    const char* pszName;
    const char* pszPlanted; // below the test's directory
    int (*call)(const Sandbox& box, const tagZEBU_LOGFILE_SPEC* pRing, const std::string& backup);
    int iResult;
    int iFailure;

    friend void PrintTo(const Way& way, std::ostream* pOut) { *pOut << way.pszName; }
};

int startSingle(const Sandbox&, const tagZEBU_LOGFILE_SPEC* pRing, const std::string&)
{
    return ZEBU2_Initialize(pRing, "links");
}

int startShared(const Sandbox&, const tagZEBU_LOGFILE_SPEC* pRing, const std::string&)
{
    return ZEBU2_InitializeM(pRing, "links", 0);
}

int backup(const Sandbox&, const tagZEBU_LOGFILE_SPEC* pRing, const std::string& backup)
{
    return ZEBU2_Initialize(pRing, "links") == 0 ? ZEBU2_TraceBackup(backup.c_str()) : -2;
}

int changeMode(const Sandbox&, const tagZEBU_LOGFILE_SPEC* pRing, const std::string&)
{
    return ZEBU2_Initialize(pRing, "links") == 0 ? ZEBU2_ChFileAttr(0666) : -2;
}

const Way cs_ways[] = {
    {"TraceFile", "ring/app1.log", startSingle, 1, 0x06000002},
    {"SharedTraceFile", "ring/app1.log", startShared, 1, 0x27000002},
    {"SharedOtherFile", "ring/app2.log", startShared, 1, 0x27000002},
    {"ManagementFile", "ring/mmap/app.mm", startShared, 1, 0x27000002},
    {"Area", "mmap/zebu2mmap.mm", startSingle, 2, ZEBU_EPOS_MMAP},
    {"Backup", "ring/backup", backup, -1, 0x0E000002},
    {"ModeOfAnotherFile", "ring/app3.log", changeMode, -1, 0x2500001B},
};

class Planted : public Sandbox, public ::testing::WithParamInterface<Way>
{
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "only root can plant what belongs to another";
        for (const char* pszDirectory : {"ring", "ring/mmap", "mmap"}) {
            ASSERT_EQ(mkdir(path(pszDirectory).c_str(), 0777), 0);
            ASSERT_EQ(chmod(path(pszDirectory).c_str(), 0777), 0);
        }
        writeFile(path("victim"), "not a trace file");
        ASSERT_EQ(chmod(path("victim").c_str(), 0600), 0);
        age(path("victim"), 1000);         // not the newest of the ring's files
        if (GetParam().call == changeMode) // a file that is newer than what is planted
            writeFile(path("ring/app1.log"), "");
        alarm(20);
    }

    std::string planted() const { return path(GetParam().pszPlanted); }
    int call()
    {
        const std::string name = path("ring/app");
        const tagZEBU_LOGFILE_SPEC spec = {4096, 3, name.c_str()};
        return GetParam().call(*this, &spec, path("ring/backup"));
    }
    void expectVictimUntouched()
    {
        EXPECT_EQ(readFile(path("victim")), "not a trace file");
        EXPECT_EQ(fileMode(path("victim")), 0600);
    }
};

TEST_P(Planted, LinkOfAnotherUserIsNotFollowed)
{
    for (const char* pszTarget : {"victim", "new"}) {
        ASSERT_EQ(symlink(path(pszTarget).c_str(), planted().c_str()), 0);
        ASSERT_EQ(lchown(planted().c_str(), cs_iNobody, cs_iNobody), 0);
        EXPECT_EQ(call(), GetParam().iResult) << pszTarget;
        EXPECT_EQ(lastError(), GetParam().iFailure) << pszTarget;
        EXPECT_EQ(ZEBU2_Finalize(), 0);
        expectVictimUntouched();
        EXPECT_FALSE(exists(path("new")));
        ASSERT_EQ(unlink(planted().c_str()), 0);
    }
}

TEST_P(Planted, LinkOfTheCallerIsFollowed)
{
    ASSERT_EQ(symlink("../real", planted().c_str()), 0);
    if (std::string(GetParam().pszName) == "ManagementFile") {
        ASSERT_EQ(unlink(planted().c_str()), 0);
        ASSERT_EQ(symlink("../../real", planted().c_str()), 0);
    }
    const bool bArea = GetParam().iFailure == ZEBU_EPOS_MMAP; // which follows no link at all
    EXPECT_EQ(call(), bArea ? 2 : 0);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_EQ(exists(path("real")), GetParam().call != changeMode && !bArea);
}

TEST_P(Planted, FifoDoesNotBlock)
{
    ASSERT_EQ(mkfifo(planted().c_str(), 0666), 0);
    (void)call();
    EXPECT_EQ(ZEBU2_Finalize(), 0);
}

INSTANTIATE_TEST_SUITE_P(At, Planted, ::testing::ValuesIn(cs_ways),
                         [](const auto& test) { return test.param.pszName; });

} // namespace
