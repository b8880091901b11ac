// The ring of one process: which file it goes on in, its header, moving on, locks, backup, permissions.
#include <sys/mount.h>
#include <sys/utsname.h>

#include <regex>

#include "support/Sandbox.h"

class Ring : public Sandbox
{
protected:
    void start(long lCount = 3) { ASSERT_EQ(ZEBU2_Initialize(ring(4096, lCount), "app"), 0); }
    // Of this process; -1: none.
    static int descriptorOf(const std::string& path)
    {
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
            if (std::error_code ignored; std::filesystem::read_symlink(entry, ignored) == path)
                return std::stoi(entry.path().filename());
        return -1;
    }
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
    utsname info;
    ASSERT_TRUE(header.size() == 2 && uname(&info) == 0);
    char szExpected[200];
    (void)snprintf(szExpected, sizeof szExpected, "**** %-60.60s %-17sTZ=Europe/Berlin-and-more-charac ",
                   (std::string(info.sysname) + " " + info.release + " " + info.version).c_str(),
                   strlen(info.nodename) > 16 ? "Unknown" : info.nodename);
    EXPECT_EQ(header[0].substr(0, 116), szExpected);
    EXPECT_EQ(std::regex_replace(header[0].substr(116), std::regex("[0-9]"), "0"), "0000/00/00 00:00:00.000");
    EXPECT_EQ(header[1], "     yyyy/mm/dd hh:mm:ss.sss                      pid      tid      message-id"
                         "            message(LANG=" +
                             std::string(64, 'l') + ")");
}

TEST_F(Ring, GoesOnInTheRightFile)
{
    const std::string full(4096, 'x');
    // The files, their ages, the file that is chosen, whether it begins anew.
    const std::tuple<Lines, std::vector<long>, size_t, bool> cases[] = {
        {{}, {}, 1, true},
        {{"a", "b", "c"}, {10, 10, 10}, 3, false}, // of the same second: highest number
        {{"a", full.substr(1), "c"}, {30, 10, 20}, 2, false},
        {{"a", full, "c"}, {30, 10, 20}, 3, true},
        {{"a", "b", full}, {30, 20, 10}, 1, true},
    };
    for (const auto& [contents, ages, uChosen, bEmptied] : cases) {
        for (size_t i = 0; i < contents.size(); ++i) {
            const std::string file = traceFile(static_cast<int>(i + 1));
            writeFile(file, contents[i]);
            age(file, ages[i]);
        }
        start();
        stop();
        const std::string found = readFile(traceFile(static_cast<int>(uChosen)));
        EXPECT_EQ(found.find("**** "), bEmptied ? 0 : contents[uChosen - 1].size()) << uChosen;
    }
}

TEST_F(Ring, MovesOnOnlyBeyondTheMaximum)
{
    start();
    putLine(std::string(4096 - readFile(traceFile(1)).size() - 70, 'a'));
    EXPECT_EQ(readFile(traceFile(1)).size(), 4096u);
    putLine("still here");
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
    const auto rival = [&] {
        CHECK(ZEBU2_Finalize() == 0);
        CHECK(result(ZEBU2_Initialize(ring(4096), "rival")) == Result(1, 0x06000016));
        CHECK(ZEBU2_PutLine(0, "refused") == -1);
        CHECK(ZEBU2_Finalize() == 0);
    };
    passInChild([&] {
        putLine("child"); // through what it inherited
        CHECK(ZEBU2_TraceBackup(path("copy").c_str()) == 0);
        rival();
    });
    const auto untilItStops = [](pid_t iChild) { EXPECT_EQ(waitpid(iChild, nullptr, WUNTRACED), iChild); };
    const pid_t iFirst = startChild([&] {
        (void)raise(SIGSTOP); // the parent goes, its child goes on
        putLine("daemon");
        CHECK(inChild(rival) == 0);
        fill();
        putLine("next");
        CHECK(ZEBU2_Finalize() == 0);
    });
    untilItStops(iFirst);
    stop();
    EXPECT_EQ(kill(iFirst, SIGCONT), 0);
    EXPECT_EQ(waitForChild(iFirst), 0);
    EXPECT_EQ(bodies(lines(1)), (Lines{"parent", "child", "daemon", std::string(4050, 'f')}));
    EXPECT_EQ(splitLines(readFile(traceFile(1))).size(), 6u) << "one header";
    EXPECT_EQ(bodies(lines(2)), Lines{"next"});

    // The newest file is full: the next one is not for the taking. Nor does a child go back to a file that
    // the ring has left.
    start();
    const pid_t iSecond = startChild([&] {
        (void)raise(SIGSTOP);
        putLine("left behind");
        (void)raise(SIGSTOP);
        putLine("goes on after it");
    });
    fill();
    passInChild([&] {
        CHECK(result(ZEBU2_PutLine(0, "refused")) == Result(-1, 0x08000016));
        rival();
    });
    putLine("in file 3");
    for (int n = 1; n <= 3; ++n)
        age(traceFile(n), 10 - n);
    untilItStops(iSecond);
    EXPECT_EQ(kill(iSecond, SIGCONT), 0);
    untilItStops(iSecond);
    stop();
    EXPECT_EQ(kill(iSecond, SIGCONT), 0);
    EXPECT_EQ(waitForChild(iSecond), 0);
    EXPECT_EQ(bodies(lines(2)).back(), "left behind");
    EXPECT_EQ(bodies(lines(3)), (Lines{"in file 3", "goes on after it"}));

    start(1); // the next file is the same one
    fill();
    putLine("emptied before it");
    passInChild(rival);
    EXPECT_EQ(bodies(lines(1)), Lines{"emptied before it"});
}

TEST_F(Ring, LeavesADescriptorAloneThatIsNotItsAnyMore)
{
    // A close that fails leaves the instance alive; it is a user of the process's objects no more, once and
    // for all.
    startArea();
    ZEBU2_HINSTANCE hInstance = nullptr;
    ASSERT_EQ(ZEBU2_CreateInstance(&hInstance, ring(4096), "app"), 0);
    EXPECT_EQ(close(descriptorOf(traceFile(1))), 0);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(failure(ZEBU2_DeleteInstance(hInstance)), Failure(-1, 0x14000003, EBADF));
    putLine("the process log goes on");
    stop();
    // What the application does then with the number: a line, a flush, a copy, a line that moves the ring on,
    // the end.
    const std::tuple<std::string, int (*)(const char*), Result> calls[] = {
        {"flush", [](const char*) { return ZEBU2_FileBufferFlush(); }, {-1, 0x0B00000C}},
        {"copy", ZEBU2_TraceBackup, {-1, 0x0E00000C}},
        {"switch", [](const char*) { return ZEBU2_PutLine(0, "next"); }, {0, 0}},
        {"end", [](const char*) { return ZEBU2_Finalize(); }, {0, 0}},
    };
    for (const auto& each : calls) {
        SCOPED_TRACE(std::get<0>(each));
        passInChild([&] {
            const auto& [name, call, expected] = each;
            (void)ZEBU2_Initialize(ring(4096, 3, name), "app");
            fill();
            writeFile(path("own"), "own");
            const int iLost = descriptorOf(path(name) + "1.log"), iOwn = open(path("own").c_str(), O_RDWR);
            const auto isOwn = [&] { return fcntl(iLost, F_GETFD) != -1 && readFile(path("own")) == "own"; };
            CHECK(dup2(iOwn, iLost) == iLost && result(call(path("copy").c_str())) == expected && isOwn());
            CHECK(name == "end" || (ZEBU2_PutLine(0, "goes on") == 0 && ZEBU2_Finalize() == 0 && isOwn()));
            CHECK(name == "end" || bodies(traceLines(readFile(path(name) + "2.log"))).back() == "goes on");
        });
    }
}

TEST_F(Ring, NeverEmptiesAFileThatIsLocked)
{
    writeFile(traceFile(1), "");
    writeFile(traceFile(2), "another program's");
    age(traceFile(2), 100);
    start();
    const int iHeld = lockAsAnother(traceFile(2));
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

    const std::string own = "/proc/self/fd/" + std::to_string(descriptorOf(traceFile(2)));
    ASSERT_EQ(link(traceFile(2).c_str(), path("other name").c_str()), 0);
    for (int i = 0; i < 2; ++i) {
        for (const std::string& file : {path("other name"), own, i == 0 ? traceFile(2) : own})
            EXPECT_EQ(result(ZEBU2_TraceBackup(file.c_str())), Result(-1, 0x0E000001)) << file;
        EXPECT_EQ(unlink(traceFile(2).c_str()), -i); // only open it is none of the ring's, but not emptied
    }
    ASSERT_EQ(rename(path("other name").c_str(), traceFile(2).c_str()), 0);
    EXPECT_EQ(result(ZEBU2_TraceBackup(path("deep").c_str())), Result(-1, 0x0E000002));
    EXPECT_EQ(result(ZEBU2_TraceBackup(nullptr)), Result(-1, 0x0E000001));
    // The longest path that the kernel takes, and one more.
    for (const size_t uLength : {4095u, 4096u}) {
        const std::string to = path(std::string(uLength - path("").size() - 4, '/')) + "copy";
        EXPECT_EQ(failure(ZEBU2_TraceBackup(to.c_str())),
                  uLength == 4095 ? Failure() : Failure(-1, 0x0E000002, ENAMETOOLONG));
    }
    putLine("after");
    stop();
    EXPECT_EQ(bodies(lines(2)), (Lines{"six", "after"}));
}

TEST_F(Ring, BackupGoesWhereverAnApplicationCanWrite)
{
    alarm(60);
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    start();
    putLine(std::string(4000, 'x'));
    writeFile(traceFile(2), std::string(70'000, 'o')); // of a ring whose files were larger once
    writeFile(traceFile(3), "sparse");
    std::filesystem::resize_file(traceFile(3), 2L << 30);
    age(traceFile(2), 200);
    age(traceFile(3), 100);
    const std::string expected = readFile(traceFile(2)) + std::string("sparse").append(8588, '\0');
    int aPipe[2];
    ASSERT_TRUE(pipe(aPipe) == 0 && fcntl(aPipe[1], F_SETPIPE_SZ, 1 << 20) >= 1 << 20);
    const pid_t iReader = startChild([&] { CHECK(readFile(path("fifo")).starts_with(expected)); });
    const int iFile = open(path("file").c_str(), O_RDWR | O_CREAT, 0600);
    for (const std::string& to :
         {path("fifo"), "/dev/fd/" + std::to_string(aPipe[1]), "/proc/self/fd/" + std::to_string(iFile)}) {
        const long lOpen = openDescriptors();
        EXPECT_EQ(result(ZEBU2_TraceBackup(to.c_str())), Result(0, 0)) << to;
        EXPECT_EQ(openDescriptors(), lOpen);
    }
    EXPECT_EQ(waitForChild(iReader), 0);
    EXPECT_EQ(readFile(path("file")), expected + readFile(traceFile(1)));
    std::string piped(200'000, '\0');
    piped.resize(static_cast<size_t>(read(aPipe[0], piped.data(), piped.size())));
    EXPECT_EQ(piped, readFile(path("file")));
}

TEST_F(Ring, ADeviceMayStandInForATraceFile)
{
    for (const auto& [pszDevice, expected] :
         {std::pair("/dev/full", Failure(-1, 0x08000004, ENOSPC)), {"/dev/null", Failure()}}) {
        start();
        fill();
        ASSERT_EQ(symlink(pszDevice, traceFile(2).c_str()), 0);
        EXPECT_EQ(failure(ZEBU2_PutLine(0, "device")), expected) << pszDevice;
        stop();
        ASSERT_EQ(unlink(traceFile(2).c_str()) | unlink(traceFile(1).c_str()), 0);
    }
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

    ASSERT_EQ(ZEBU2_ChFileAttr(0600) | chmod(path("").c_str(), 0777), 0);
    passInChild([&] { // as somebody who may read none but what is open
        if (seteuid(65534) == 0)
            CHECK(result(ZEBU2_TraceBackup(path("other").c_str())) == Result(0, 0) &&
                  bodies(traceLines(readFile(path("other")))) == Lines{"in file 1"});
    });
    ASSERT_EQ(unlink(traceFile(3).c_str()), 0);
    ASSERT_EQ(symlink("app3.log", traceFile(3).c_str()), 0); // passed over
    EXPECT_EQ(result(ZEBU2_ChFileAttr(0600)), Result(0, 0));
}

// As where a server has changed its root directory.
TEST_F(Ring, ModesAreSetWithoutProc)
{
    if (!enterPrivateOpt())
        GTEST_SKIP() << "no mount namespaces here";
    passInChild([&] { // not in this process: a search for leaks needs /proc
        CHECK(enterPrivateOpt() && umount2("/proc", MNT_DETACH) == 0);
        (void)umask(077);
        CHECK(ZEBU2_Initialize(ring(4096, 3, "deep/down/app"), "app") == 0);
        writeFile(path("deep/down/app2.log"), "");
        CHECK((fileMode(path("deep")) & fileMode(path("deep/down"))) == 0777);
        CHECK(result(ZEBU2_ChFileAttr(0640)) == Result(0, 0));
        CHECK((fileMode(path("deep/down/app1.log")) | fileMode(path("deep/down/app2.log"))) == 0640);
        CHECK(inChild([&] { // no descriptor of the locked file was closed
                  CHECK(ZEBU2_Finalize() == 0);
                  CHECK(ZEBU2_Initialize(ring(4096, 3, "deep/down/app"), "rival") == 1);
              }) == 0);
    });
}
