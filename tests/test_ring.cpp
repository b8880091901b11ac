// The ring of one process: which file it goes on in, its header, moving on, locks, backup, permissions.
#include <sys/utsname.h>

#include <algorithm>

#include "support/Sandbox.h"

class Ring : public Sandbox
{
protected:
    void start(long count = 3) { ASSERT_EQ(ZEBU2_Initialize(ring(4096, count), "app"), 0); }
    // Puts a line behind which a file with a header is full.
    static void fill() { putLine(std::string(4050, 'f')); }
};

TEST_F(Ring, HeaderHasItsColumns)
{
    setenv("TZ", "Europe/Berlin-and-more-characters", 1);
    setenv("LANG", std::string(70, 'l').c_str(), 1);
    start();
    stop();
    const Lines header = splitLines(readFile(traceFile(1)));
    ASSERT_EQ(header.size(), 2u);
    utsname info;
    ASSERT_EQ(uname(&info), 0);
    char szExpected[200];
    (void)snprintf(szExpected, sizeof szExpected, "**** %-60.60s %-17sTZ=Europe/Berlin-and-more-charac ",
                   (std::string(info.sysname) + " " + info.release + " " + info.version).c_str(),
                   strlen(info.nodename) > 16 ? "Unknown" : info.nodename);
    EXPECT_EQ(header[0].substr(0, 116), szExpected);
    std::string stamp = header[0].substr(116);
    std::replace_if(stamp.begin(), stamp.end(), isdigit, '0');
    EXPECT_EQ(stamp, "0000/00/00 00:00:00.000");
    EXPECT_EQ(header[1], "     yyyy/mm/dd hh:mm:ss.sss                      pid      tid      message-id"
                         "            message(LANG=" +
                             std::string(64, 'l') + ")");
}

TEST_F(Ring, GoesOnInTheRightFile)
{
    const std::string full(4096, 'x');
    // The files, empty where there is none, their ages, the file that is chosen, whether it is emptied.
    const std::tuple<Lines, std::vector<long>, size_t, bool> cases[] = {
        {{"", "", ""}, {0, 0, 0}, 1, false},
        {{"a", "b", "c"}, {10, 10, 10}, 3, false}, // of the same second: highest number
        {{"a", full.substr(1), "c"}, {30, 10, 20}, 2, false},
        {{"a", full, "c"}, {30, 10, 20}, 3, true},
        {{"a", "b", full}, {30, 20, 10}, 1, true},
    };
    for (const auto& [contents, ages, chosen, bEmptied] : cases) {
        for (size_t i = 0; i < 3; ++i) {
            const std::string file = traceFile(static_cast<int>(i + 1));
            writeFile(file, contents[i]);
            age(file, ages[i]);
            if (contents[i].empty())
                (void)unlink(file.c_str());
        }
        start();
        stop();
        const std::string found = readFile(traceFile(static_cast<int>(chosen)));
        EXPECT_EQ(found.find("**** "), bEmptied ? 0 : contents[chosen - 1].size()) << chosen;
    }
}

TEST_F(Ring, MovesOnOnlyBeyondTheMaximum)
{
    start();
    putLine(std::string(4096 - readFile(traceFile(1)).size() - 70, 'a'));
    EXPECT_EQ(readFile(traceFile(1)).size(), 4096u);
    putLine("still here");
    EXPECT_FALSE(exists(traceFile(2)));
    putLine("next");
    putLine(std::string(4117, 'L')); // longer than the maximum with its header: whole in one file
    putLine("third");
    stop();
    EXPECT_EQ(bodies(lines(2)), (Lines{"next", std::string(4117, 'L')}));
    EXPECT_EQ(bodies(lines(3)), Lines{"third"});
}

// No test of locks may read a file of the running ring: closing it would give the process's lock up.

TEST_F(Ring, BelongsToOneProcessUntilItLeaves)
{
    start();
    putLine("parent");
    for (int i = 0; i < 2; ++i) // reads the locked file, and must not unlock it
        EXPECT_EQ(ZEBU2_TraceBackup(path("copy").c_str()), 0);
    const int iRival = inChild([&] {
        CHECK(result(ZEBU2_PutLine(0, "refused")) == Result(-1, 0x08000016));
        CHECK(ZEBU2_PutToShm("area", 4) == 0);
        CHECK(ZEBU2_Finalize() == 0);
        CHECK(result(ZEBU2_Initialize(ring(4096), "rival")) == Result(1, 0x06000016));
        CHECK(ZEBU2_PutLine(0, "refused") == -1);
        CHECK(ZEBU2_Finalize() == 0);
    });
    EXPECT_EQ(iRival, 0);
    putLine("still the parent's");
    fill(); // so would be the next file
    EXPECT_EQ(inChild([] { CHECK(result(ZEBU2_PutLine(0, "refused")) == Result(-1, 0x08000016)); }), 0);
    // A daemon: the parent goes, its child goes on.
    int left[2];
    ASSERT_EQ(pipe(left), 0);
    const pid_t iDaemon = startChild([&] {
        CHECK(read(left[0], left, 1) == 1);
        putLine("daemon");
        CHECK(ZEBU2_Finalize() == 0);
    });
    stop();
    EXPECT_EQ(write(left[1], "", 1), 1);
    EXPECT_EQ(waitForChild(iDaemon), 0);
    EXPECT_EQ(bodies(lines(1)), (Lines{"parent", "still the parent's", std::string(4050, 'f')}));
    EXPECT_EQ(bodies(lines(2)), Lines{"daemon"});
}

TEST_F(Ring, NeverEmptiesAFileThatIsLocked)
{
    writeFile(traceFile(1), "");
    writeFile(traceFile(2), "another program's");
    age(traceFile(2), 100);
    const int iHeld = lockAsAnother(traceFile(2));
    start();
    fill();
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(result(ZEBU2_PutLine(0, "lost")), Result(-1, 0x08000016));
    EXPECT_EQ(readFile(traceFile(2)), "another program's");
    (void)close(iHeld);
    putLine("file 2 is free now");
    stop();
    EXPECT_EQ(bodies(lines(2)), Lines{"file 2 is free now"});
}

TEST_F(Ring, BackupHoldsTheRingOldestFirst)
{
    start(4);
    for (const char* pszName : {"one", "two", "three", "four", "five"}) {
        putLine(pszName);
        fill();
    }
    putLine("six");
    ASSERT_EQ(unlink(traceFile(4).c_str()), 0); // missing files are left out
    EXPECT_EQ(ZEBU2_TraceBackup(path("deep/down/copy").c_str()), 0);
    EXPECT_EQ(readFile(path("deep/down/copy")),
              readFile(traceFile(3)) + readFile(traceFile(1)) + readFile(traceFile(2)));
    EXPECT_EQ(fileMode(path("deep/down")), 0777);

    EXPECT_EQ(result(ZEBU2_TraceBackup(traceFile(2).c_str())), Result(-1, 0x0E000001));
    EXPECT_EQ(result(ZEBU2_TraceBackup(path("deep").c_str())), Result(-1, 0x0E000002));
    EXPECT_EQ(result(ZEBU2_TraceBackup(nullptr)), Result(-1, 0x0E000001));
    putLine("after");
    stop();
    EXPECT_EQ(bodies(lines(2)), (Lines{"six", "after"}));
}

TEST_F(Ring, FilesAreAsOpenAsTheyAreMeantToBe)
{
    (void)umask(077);
    writeFile(traceFile(2), "");
    ASSERT_EQ(chmod(traceFile(2).c_str(), 0604), 0);
    start();
    EXPECT_EQ(fileMode(traceFile(2)), 0604); // found with it
    fill();
    putLine("in file 3");
    EXPECT_EQ(fileMode(traceFile(3)), 0666); // made
    EXPECT_EQ(ZEBU2_ChFileAttr(0640) | ZEBU2_TraceBackup(path("copy").c_str()), 0);
    fill();
    putLine("in file 1");
    for (const std::string& file : {traceFile(1), traceFile(2), traceFile(3), path("copy")})
        EXPECT_EQ(fileMode(file), 0640) << file;
}
