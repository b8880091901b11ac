// Names that others may plant in a directory that others can write: nothing outside is opened, emptied or
// made writable through them, and nothing waits for them.
#include "support/Sandbox.h"

using Planted = Sandbox;

TEST_F(Planted, NothingIsDoneThroughThem)
{
    // The name, below the test's directory, that the start of a log, its backup or a change of its modes
    // comes upon, the first result that is not 0 and its failure, and where a link of the caller leads to;
    // empty: it is not followed or leads nowhere.
    const std::tuple<const char*, bool, int, int, std::string> ways[] = {
        {"ring/app1.log", false, 1, 0x06000002, "../real"},
        {"ring/app1.log", true, 1, 0x27000002, "../real"},
        {"ring/app2.log", true, 1, 0x27000002, "../real"},
        {"ring/mmap/app.mm", true, 1, 0x27000002, "../../real"},
        {"mmap/zebu2mmap.mm", false, 2, ZEBU_EPOS_MMAP, ""},
        {"ring/copy", false, -1, 0x0E000002, "../real"},
        {"ring/app3.log", false, -1, 0x2500001B, ""}};
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can plant what belongs to another";
    alarm(60);
    writeFile(path("victim"), "not a trace file");
    ASSERT_EQ(chmod(path("victim").c_str(), 0600), 0);
    age(path("victim"), 1000);
    for (const auto& [pszPlanted, bShared, iResult, iFailure, target] : ways) {
        SCOPED_TRACE(pszPlanted);
        const std::string planted = path(pszPlanted);
        for (const char* pszDirectory : {"ring", "ring/mmap", "mmap"}) {
            (void)std::filesystem::remove_all(path(pszDirectory));
            ASSERT_EQ(mkdir(path(pszDirectory).c_str(), 0777), 0);
            ASSERT_EQ(chmod(path(pszDirectory).c_str(), 0777), 0);
        }
        if (!bShared && planted != path("ring/app1.log"))
            writeFile(path("ring/app1.log"), ""); // the newest of the ring's files
        const auto call = [&, bShared = bShared] {
            const tagZEBU_LOGFILE_SPEC* pRing = ring(4096, 3, "ring/app");
            int iFirst = bShared ? ZEBU2_InitializeM(pRing, "links", 0) : ZEBU2_Initialize(pRing, "links");
            if (iFirst == 0)
                iFirst = ZEBU2_TraceBackup(path("ring/copy").c_str());
            if (iFirst == 0)
                iFirst = ZEBU2_ChFileAttr(0666);
            const Result first = result(iFirst);
            stop();
            return first;
        };
        for (const char* pszTarget : {"victim", "new"}) {
            ASSERT_EQ(symlink(path(pszTarget).c_str(), planted.c_str()), 0);
            ASSERT_EQ(lchown(planted.c_str(), 65534, 65534), 0);
            const bool bAbsent = iFailure == 0x2500001B && pszTarget == std::string("new"); // passed over
            EXPECT_EQ(call(), bAbsent ? Result(0, 0) : Result(iResult, iFailure)) << pszTarget;
            EXPECT_EQ(readFile(path("victim")), "not a trace file");
            EXPECT_EQ(fileMode(path("victim")), 0600);
            EXPECT_FALSE(exists(path("new")));
            ASSERT_EQ(unlink(planted.c_str()), 0);
        }
        if (planted != path("ring/copy")) {              // for the reader of which a backup waits
            ASSERT_EQ(mkfifo(planted.c_str(), 0666), 0); // does not block
            (void)call();
            ASSERT_EQ(lchown(planted.c_str(), 65534, 65534), 0); // would take the lines away
            const int iReader = open(planted.c_str(), O_RDONLY | O_NONBLOCK);
            EXPECT_TRUE(target.empty() || call() == Result(iResult, iFailure));
            char c;
            EXPECT_LE(read(iReader, &c, 1), 0);
            (void)close(iReader);
            ASSERT_EQ(unlink(planted.c_str()), 0);
        }
        if (!target.empty()) {
            // Up to the longest path that the kernel takes.
            const size_t uRoom = 4095 - planted.rfind('/') - 1;
            const std::string longest = "./" + std::string(uRoom - 2 - target.size(), '/') + target;
            for (const std::string& own : {target, longest, longest + "l"}) {
                ASSERT_EQ(symlink(own.c_str(), planted.c_str()), 0);
                EXPECT_GE(call().first, own.size() <= uRoom ? 0 : -1);
                EXPECT_EQ(std::filesystem::remove(path("real")), own.size() <= uRoom)
                    << "the caller's own link is followed";
                ASSERT_EQ(unlink(planted.c_str()), 0);
            }
        }
    }
}

TEST_F(Planted, LinkInPlaceOfTheDirectoryOfTheManagementFile)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can plant what belongs to another";
    ASSERT_EQ(mkdir(path("ring").c_str(), 0777) | mkdir(path("elsewhere").c_str(), 0777), 0);
    ASSERT_EQ(symlink("../elsewhere", path("ring/mmap").c_str()), 0);
    for (const uid_t uOwner : {65534u, 0u}) {
        ASSERT_EQ(lchown(path("ring/mmap").c_str(), uOwner, uOwner), 0);
        EXPECT_EQ(result(ZEBU2_InitializeM(ring(4096, 3, "ring/app"), "links", 0)),
                  uOwner ? Result(1, 0x27000002) : Result(0, 0));
        EXPECT_EQ(exists(path("elsewhere/app.mm")), uOwner == 0);
        stop();
    }
}
