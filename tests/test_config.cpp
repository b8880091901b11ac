// tests/test_config.cpp -- the configuration file: which one is read, its lines, and the paths in it.
#include "config/Conf2Unix.h"
#include "config/ConfFile.h"
#include "config/ConfUnix.h"
#include "support/Sandbox.h"

// ---- Values --------------------------------------------------------------------------------------

// Where the system allows it, without a standard file.
class Config : public Sandbox
{
protected:
    const bool bPrivateOpt = enterPrivateOpt();
};

TEST_F(Config, LinesGiveTheValues)
{
    // Size of the area, interval and number of the rate limit, template of the notice.
    const std::pair<std::string, std::tuple<unsigned int, int, int, std::string>> cases[] = {
        {"Release = 3\nMonPath = /mon\nLogSize = 5\nLogFNum = 6\nWatchDog = 7\nMapSize = 8\nIntervalSec = 9\n"
         "MaxMsgNum = 10\nMsgString=Switched %f\n",
         {8, 9, 10, "Switched %f\n"}},
        {"# comment\n\nMsgString = MapSize = 1\n MapSize = 2\nmapsize = 3\nMapSize=4\nMapSize= 4\n",
         {65536, 0, 0, "MapSize = 1\n"}},
        {"MapSizeOfTheArea \t= \t 4096 and more\nMsgStringOf this =\tthat = x\n",
         {4096, 0, 0, "\tthat = x\n"}},
        {"MapSize = 2\nMapSize = 1\nMapSize = x\nMapSize =\nMapSize 9", {1, 0, 0, ""}},
        {"MapSize = 0x20\nMaxMsgNum = 4294967297\n MsgString = indented\n", {0, 0, 1, ""}},
        {"MapSize = -1\nIntervalSec = -5\nMsgString = the longer one\nMsgString = last\nMsgString without\n",
         {4294967295U, -5, 0, "last\n"}},
        {"#" + std::string(4158, ' ') + "MapSize = 77\n", {77, 0, 0, ""}}, // longer lines are two
        {"MsgString = " + std::string(300, 'm') + "\n", {65536, 0, 0, std::string(255, 'm')}},
    };
    for (const auto& [lines, values] : cases) {
        configure(lines);
        const ZEBUConfigInf conf;
        EXPECT_EQ(std::tuple(conf.uMapSize, conf.iIntervalSec, conf.iMaxMsgNum,
                             std::string(ZEBUConfigInf2().szMsgString)),
                  values)
            << lines;
    }
}

TEST_F(Config, AreaLiesBesideTheLogFile)
{
    const std::string longest = "/" + std::string(4096 - 18 - 1, 'p');
    const std::pair<std::string, std::string> cases[] = {
        {"/srv/app/../x//log/./trace", "/srv/x/log/mmap"},
        {"/a/b/../../../c/d/../t", "/c/mmap"},
        {"/.../.x/..y/z./t", "/.../.x/..y/z./mmap"},
        {"/trace", "//mmap"},
        {longest + "/t", longest + "/mmap"},
        {longest + "p/t", ""},
        {"/" + std::string(5000, 'l'), ""},
        {"relative/trace", ""},
    };
    for (const auto& [logFile, directory] : cases) {
        writeFile(configFile(), "MapSize = 5000\nLogFile = " + logFile + "\n");
        const ZEBUConfigInf conf;
        EXPECT_EQ(conf.szMMapDir, directory) << logFile;
        EXPECT_EQ(conf.uMapSize, directory.empty() ? 65536U : 5000U) << logFile;
    }
}

// ---- Which file is read --------------------------------------------------------------------------

TEST_F(Config, StandardFileIsReadWithoutAUsableOverride)
{
    if (!bPrivateOpt)
        GTEST_SKIP() << "no mount namespace to be had";
    // What is read when the environment names this file.
    const auto expect = [](const std::string& name, unsigned int uMapSize, const std::string& message) {
        setenv("ZEBU2_TRACECNF_FILE", name.c_str(), 1);
        const ZEBUConfigInf conf;
        EXPECT_EQ(conf.uMapSize, uMapSize) << name;
        EXPECT_STREQ(conf.szMonPath, "") << "nothing of a refused file stays";
        const std::string area = conf.szMMapFile;
        EXPECT_TRUE(area == "/opt/kelvora/ZEBULib2/mmap/zebu2mmap.mm" || uMapSize != 6000) << name << area;
        EXPECT_EQ(ZEBUConfigInf2().szMsgString, message) << name;
    };
    const std::string standard = "/opt/kelvora/ZEBULib2/etc/D002zebu2.cnf", far = path("far.cnf");
    std::filesystem::create_directories("/opt/kelvora/ZEBULib2/etc");
    std::filesystem::create_directories("/opt/kelvora/ZEBULib/etc");
    writeFile("/opt/kelvora/ZEBULib/etc/D001zebu.cnf", "LogFile = /old/f\nMapSize = 1\n");
    writeFile(standard, "LogFile = /std/f\nMapSize = 6000\nMsgString = standard\n");
    writeFile(far, "LogFile = /l/f\nMapSize = 1\nMsgString = far\n");
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600) | chdir(path("").c_str()), 0);
    for (const std::string& name :
         Lines{"", "far.cnf", path(""), path("missing"), path("fifo"),
               "/opt/kelvora//ZEBULib2/etc/../etc/D002zebu2.cnf", "/opt/kelvora/ZEBULib/./etc/D001zebu.cnf"})
        expect(name, 6000, "standard\n");
    expect(std::string(4095 - far.size(), '/') + far, 1, "far\n"); // the longest path there is
    writeFile(far, "MapSize = 1\nMonPath = /mon\nMsgString = far\n");
    expect(far, 6000, "far\n"); // without a log file it serves the notice alone
    ASSERT_EQ(unlink(standard.c_str()), 0);
    expect("", 65536, "");
    ASSERT_EQ(mkfifo(standard.c_str(), 0600), 0); // that nobody writes
    expect("", 65536, "");
}

// A copy of this program runs with the rights of its owner, who is not its user.
TEST_F(Config, AProgramWithOtherRightsThanItsUserIgnoresTheEnvironment)
{
    const bool bCopy = getenv("ZEBU_TEST_COPY");
    EXPECT_EQ(ZEBU_GetCnfOverride() == nullptr, bCopy);
    if (bCopy)
        _exit(HasFailure() ? 1 : 0); // a search for leaks is not allowed to it
    const std::string copy = path("copy");
    std::filesystem::copy_file("/proc/self/exe", copy);
    if (chown(copy.c_str(), 65534, 65534) != 0 || chmod(copy.c_str(), 04755) != 0)
        GTEST_SKIP() << "files cannot be given away";
    setenv("ZEBU_TEST_COPY", "1", 1);
    EXPECT_EQ(system((copy + " --gtest_filter='*IgnoresTheEnvironment'").c_str()), 0);
}
