// The ring of one process: which file it goes on in, its header, moving on, locks, backup, permissions.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>

#include "support/Sandbox.h"

class Ring : public Sandbox
{
protected:
    void start(long size = 4096, long count = 3) { ASSERT_EQ(ZEBU2_Initialize(ring(size, count), "app"), 0); }
    static void stop() { EXPECT_EQ(ZEBU2_Finalize(), 0); }
    static void put(const std::string& text) { EXPECT_EQ(ZEBU2_PutLine(0, text.c_str()), 0) << std::hex << lastError(); }
    // Puts lines of 4000 bytes until file n has been begun.
    void fillUntil(int n)
    {
        for (int i = 0; i < 100 && (!exists(traceFile(n)) || fileSize(traceFile(n)) == 0); ++i)
            put(std::string(4000 - 70, 'f'));
    }
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
    std::string system = std::string(info.sysname) + " " + info.release + " " + info.version;
    system.resize(60, ' ');
    char szHost[65] = {};
    ASSERT_EQ(gethostname(szHost, sizeof szHost), 0);
    std::string host = strlen(szHost) > 16 ? "Unknown" : szHost;
    host.resize(17, ' ');
    EXPECT_EQ(header[0].substr(0, 116), "**** " + system + " " + host + "TZ=Europe/Berlin-and-more-charac ");
    std::string time = header[0].substr(116);
    std::replace_if(time.begin(), time.end(), [](char c) { return c >= '0' && c <= '9'; }, '9');
    EXPECT_EQ(time, "9999/99/99 99:99:99.999");
    EXPECT_EQ(header[1], "     yyyy/mm/dd hh:mm:ss.sss                      pid      tid      message-id"
                         "            message(LANG=" +
                             std::string(64, 'l') + ")");
}

TEST_F(Ring, GoesOnInTheRightFile)
{
    const std::string full(4096, 'x');
    const struct
    {
        const char* pszName;
        std::string contents[3];  // empty: no such file
        long age[3];
        int iExpected;
        bool bAppends;
    } cases[] = {
        {"none exists", {"", "", ""}, {}, 1, true},
        {"same second, highest number", {"a", "b", "c"}, {10, 10, 10}, 3, true},
        {"newest", {"a", "b", "c"}, {30, 10, 20}, 2, true},
        {"one byte below the maximum", {"a", full.substr(1), "c"}, {30, 10, 20}, 2, true},
        {"newest is full", {"a", full, "c"}, {30, 10, 20}, 3, false},
        {"last is full", {"a", "b", full}, {30, 20, 10}, 1, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pszName);
        for (int n = 1; n <= 3; ++n) {
            (void)unlink(traceFile(n).c_str());
            if (!c.contents[n - 1].empty()) {
                writeFile(traceFile(n), c.contents[n - 1]);
                age(traceFile(n), c.age[n - 1]);
            }
        }
        start();
        stop();
        const std::string now = readFile(traceFile(c.iExpected)), before = c.contents[c.iExpected - 1];
        EXPECT_EQ(now.find("**** "), c.bAppends ? before.size() : 0);
        EXPECT_EQ(now.compare(0, before.size(), before) == 0, c.bAppends);
    }
}

TEST_F(Ring, MovesOnOnlyBeyondTheMaximum)
{
    start();
    const long lHeader = fileSize(traceFile(1));
    put(std::string(static_cast<size_t>(4096 - lHeader - 70), 'a'));
    EXPECT_EQ(fileSize(traceFile(1)), 4096);
    put("still here");
    EXPECT_FALSE(exists(traceFile(2)));
    put("next");
    put(std::string(4117, 'L'));  // longer than the maximum with its header: whole in one file
    put("third");
    fillUntil(3);
    put("c");
    fillUntil(1);
    stop();
    EXPECT_EQ(bodies(lines(2)), (Lines{"next", std::string(4117, 'L')}));
    EXPECT_EQ(bodies(lines(3)).front(), "third");
    EXPECT_EQ(splitLines(readFile(traceFile(2)))[0], splitLines(readFile(traceFile(3)))[0]);  // one creation time
}

TEST_F(Ring, WrapsRoundAndEmptiesTheOldestFile)
{
    start(4096, 2);
    put("old");
    for (int i = 0; i < 4; ++i)
        put(std::string(4000, static_cast<char>('0' + i)));
    stop();
    EXPECT_EQ(readFile(traceFile(1)).find("old"), std::string::npos);
    EXPECT_EQ(lines(1).size() + lines(2).size(), 2u);
}

// No test may read a file of the running ring here: closing it would give the process's lock up.

// Another process that wants the ring once the gate is opened, and must be refused.
static pid_t startRival(Gate& go, const tagZEBU_LOGFILE_SPEC* pRing)
{
    return startChild([&go, pRing] {
        go.wait();
        CHECK(ZEBU2_Initialize(pRing, "rival") == 1);
        CHECK(lastError() == 0x06000016);
        CHECK(ZEBU2_PutLine(0, "rival") == -1);
        CHECK(ZEBU2_Finalize() == 0);
    });
}

TEST_F(Ring, BelongsToOneProcess)
{
    const tagZEBU_LOGFILE_SPEC* pRing = ring(4096, 3);
    Gate first, second;
    const pid_t iFirst = startRival(first, pRing), iSecond = startRival(second, pRing);
    start();
    put("mine");
    first.open();
    EXPECT_EQ(waitForChild(iFirst), 0);
    EXPECT_EQ(ZEBU2_TraceBackup(path("copy").c_str()), 0);  // reads the locked file, and must not unlock it
    EXPECT_EQ(ZEBU2_TraceBackup(path("copy").c_str()), 0);
    second.open();
    EXPECT_EQ(waitForChild(iSecond), 0);
    put("still mine");
    stop();
    EXPECT_EQ(bodies(lines(1)), (Lines{"mine", "still mine"}));
}

TEST_F(Ring, NeverEmptiesAFileThatIsLocked)
{
    writeFile(traceFile(1), std::string(4096, 'x'));
    writeFile(traceFile(2), "another program's");
    age(traceFile(2), 100);
    Gate held, done;
    const pid_t iHolder = startChild([&] {
        const int iFd = open(traceFile(2).c_str(), O_RDWR);
        CHECK(iFd != -1 && lockf(iFd, F_TLOCK, 0) == 0);
        held.open();
        done.wait();
    });
    held.wait();
    EXPECT_EQ(ZEBU2_Initialize(ring(4096, 3), "app"), 1);  // file 1 is full, file 2 is next
    EXPECT_EQ(lastError(), 0x06000016);
    EXPECT_EQ(readFile(traceFile(2)), "another program's");
    EXPECT_EQ(ZEBU2_Finalize(), 0);

    age(traceFile(1), 200);
    writeFile(traceFile(3), "");
    start();  // file 3 is the newest
    put(std::string(4050, 'a'));
    EXPECT_EQ(unlink(traceFile(1).c_str()), 0);
    writeFile(traceFile(1), "");
    put(std::string(4050, 'b'));  // fills file 1
    EXPECT_EQ(ZEBU2_PutLine(0, "lost"), -1);
    EXPECT_EQ(lastError(), 0x08000016);
    EXPECT_EQ(ZEBU2_PutLine(0, "lost"), -1);
    done.open();
    EXPECT_EQ(waitForChild(iHolder), 0);
    put("file 2 is free now");
    stop();
    EXPECT_EQ(bodies(lines(2)), Lines{"file 2 is free now"});
}

TEST_F(Ring, BackupHoldsTheRingOldestFirst)
{
    start(4096, 4);
    for (const char* pszName : {"one", "two", "three", "four", "five", "six"}) {
        put(pszName);
        if (std::string(pszName) != "six")
            put(std::string(4050, '-'));
    }
    ASSERT_EQ(unlink(traceFile(4).c_str()), 0);  // missing files are left out
    EXPECT_EQ(ZEBU2_TraceBackup(path("deep/down/copy").c_str()), 0);
    EXPECT_EQ(readFile(path("deep/down/copy")), readFile(traceFile(3)) + readFile(traceFile(1)) + readFile(traceFile(2)));
    EXPECT_EQ(fileMode(path("deep/down")), 0777);
    put("after");
    EXPECT_EQ(bodies(lines(2)).back(), "after");

    const std::string ringFile = readFile(traceFile(2));
    const struct
    {
        std::string destination;
        int iError;
    } refused[] = {{traceFile(2), 0x0E000001}, {path("deep"), 0x0E000002}, {traceFile(1) + "/x", 0x0E000011},
                   {"/proc/no/where", 0x0E000015}};
    for (const auto& r : refused) {
        EXPECT_EQ(ZEBU2_TraceBackup(r.destination.c_str()), -1) << r.destination;
        EXPECT_EQ(lastError(), r.iError) << r.destination;
    }
    EXPECT_EQ(ZEBU2_TraceBackup(nullptr), -1);
    EXPECT_EQ(lastError(), 0x0E000001);
    EXPECT_EQ(readFile(traceFile(2)), ringFile);
    stop();
}

TEST_F(Ring, FilesAreAsOpenAsTheyAreMeantToBe)
{
    const mode_t oldMask = umask(077);
    writeFile(traceFile(2), "");
    ASSERT_EQ(chmod(traceFile(2).c_str(), 0604), 0);
    start();
    EXPECT_EQ(fileMode(traceFile(2)), 0604);  // found with it
    EXPECT_EQ(ZEBU2_ChFileAttr(0640), 0);
    EXPECT_EQ(fileMode(traceFile(2)), 0640);
    fillUntil(3);
    EXPECT_EQ(fileMode(traceFile(3)), 0640);
    EXPECT_EQ(ZEBU2_TraceBackup(path("copy").c_str()), 0);
    EXPECT_EQ(fileMode(path("copy")), 0640);
    EXPECT_EQ(ZEBU2_ChFileAttr(0), 0);
    EXPECT_EQ(fileMode(traceFile(3)), 0600);
    stop();
    (void)unlink(traceFile(3).c_str());
    (void)unlink(traceFile(2).c_str());
    start();
    stop();
    EXPECT_EQ(fileMode(traceFile(1)), 0666);
    umask(oldMask);
}

TEST_F(Ring, MakesDirectoriesHoweverDeep)
{
    std::string deep = path("levels");
    while (deep.size() + 2 < 4080)
        deep += "/d";
    const std::string prefix = deep + "/a";
    const tagZEBU_LOGFILE_SPEC spec = {4096, 1, prefix.c_str()};
    const mode_t oldMask = umask(022);
    EXPECT_EQ(ZEBU2_Initialize(&spec, "app"), 0);
    umask(oldMask);
    EXPECT_EQ(ZEBU2_PutLine(0, "deep"), 0);
    EXPECT_EQ(fileMode(deep), 0777);
    EXPECT_GT(fileSize(prefix + "1.log"), 0);
    stop();
}

TEST_F(Ring, FlushNeedsAnOpenFile)
{
    EXPECT_EQ(ZEBU2_FileBufferFlush(), -1);
    EXPECT_EQ(lastError(), 0x0B00000B);
    start();
    EXPECT_EQ(ZEBU2_FileBufferFlush(), 0);
    stop();
}

TEST_F(Ring, AChildTakesItOverOnlyWhenTheParentHasLeft)
{
    start();
    put("parent");
    EXPECT_EQ(inChild([] {
                  CHECK(ZEBU2_PutLine(0, "refused") == -1);
                  CHECK(lastError() == 0x08000016);
                  CHECK(ZEBU2_PutToShm("area", 4) == 0);
              }),
              0);
    put("still the parent's");
    // A daemon: the parent goes, its child goes on.
    Gate left;
    const pid_t iParent = startChild([&] {
        CHECK(ZEBU2_Finalize() == 0);
        CHECK(ZEBU2_Initialize(ring(4096, 3), "app") == 1);  // this process's own parent still holds it
        CHECK(ZEBU2_Finalize() == 0);
    });
    EXPECT_EQ(waitForChild(iParent), 0);
    const pid_t iDaemon = startChild([&] {
        left.wait();
        CHECK(ZEBU2_PutLine(0, "daemon") == 0);
        CHECK(ZEBU2_Finalize() == 0);
    });
    stop();
    left.open();
    EXPECT_EQ(waitForChild(iDaemon), 0);
    EXPECT_EQ(bodies(lines(1)), (Lines{"parent", "still the parent's", "daemon"}));
}
