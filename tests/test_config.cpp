// tests/test_config.cpp -- the configuration file: which one is read, its lines, and the paths in it.
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "config/Conf2Unix.h"
#include "config/ConfUnix.h"
#include "config/GetPath.h"
#include "support/PrivateOpt.h"
#include "support/Sandbox.h"

namespace {

constexpr char cs_szDefaultFile[] = "/opt/kelvora/ZEBULib2/etc/D002zebu2.cnf";
constexpr char cs_szDefaultArea[] = "/opt/kelvora/ZEBULib2/mmap/zebu2mmap.mm";

// ---- Paths ---------------------------------------------------------------------------------------

// The result where a path fails, and what is left of the buffer.
TEST(Paths, AreNormalisedByTheirText)
{
    const struct
    {
        int (*function)(const char*, char*, size_t);
        const char* source;
        size_t max;
        int result;
        const char* path;
    } cases[] = {
        {ZEBU_GetAbsolutePath, "/a//b/./c/", 40, 0, "/a/b/c"},
        {ZEBU_GetAbsolutePath, "/a/b/../../../c/d/..", 40, 0, "/c"},
        {ZEBU_GetAbsolutePath, "/a/..", 40, 0, "/"},
        {ZEBU_GetAbsolutePath, "///", 40, 0, "/"},
        {ZEBU_GetAbsolutePath, "/.../.x/..y/z.", 40, 0, "/.../.x/..y/z."},
        {ZEBU_GetAbsolutePath, "", 40, -1, "untouched"},
        {ZEBU_GetAbsolutePath, "a/b", 40, -1, "untouched"},
        {ZEBU_GetAbsolutePath, "/abc/de", 7, 0, "/abc/de"},
        {ZEBU_GetAbsolutePath, "/abc/de", 6, -1, "/abc"},
        {ZEBU_GetAbsolutePath, "/abc/de", 3, -1, ""},
        {ZEBU_GetAbsolutePath, "/long-that-goes/../de", 3, 0, "/de"},
        {ZEBU_GetParentPath, "/a/b/c/", 40, 0, "/a/b"},
        {ZEBU_GetParentPath, "/a", 40, 0, "/"},
        {ZEBU_GetParentPath, "/", 40, 0, "/"},
        {ZEBU_GetParentPath, "a/b", 40, -1, "untouched"},
    };
    for (const auto& test : cases) {
        char path[64] = "untouched";
        EXPECT_EQ(test.function(test.source, path, test.max), test.result) << test.source;
        EXPECT_STREQ(path, test.path) << test.source;
    }
}

// ---- Values --------------------------------------------------------------------------------------

// Where the system allows it, without a standard file.
class Config : public Sandbox
{
protected:
    Config() : bPrivateOpt(enterPrivateOpt()) {}

    // Makes the environment name a file, or the configuration file with this content.
    static void nameFile(const std::string& name) { setenv("ZEBU2_TRACECNF_FILE", name.c_str(), 1); }
    void write(const std::string& content)
    {
        writeFile(configFile(), content);
        nameFile(configFile());
    }

    const bool bPrivateOpt;
};

struct Settings
{
    int release = 1;
    std::string monPath = "";
    unsigned int logSize = 262144;
    int logFNum = 4, watchDog = 10;
    unsigned int mapSize = 65536;
    int intervalSec = 0, maxMsgNum = 0;
    bool operator==(const Settings&) const = default;
};

Settings settings()
{
    const ZEBUConfigInf c;
    return {c.iRelease,  c.szMonPath, c.uLogSize,     c.iLogFNum,
            c.iWatchDog, c.uMapSize,  c.iIntervalSec, c.iMaxMsgNum};
}

TEST_F(Config, LinesGiveTheValues)
{
    const std::string text(5000, 'x');
    const std::pair<std::string, Settings> cases[] = {
        {"", {}},
        {"Release = 3\nMonPath = /mon\nLogSize = 5\nLogFNum = 6\nWatchDog = 7\nMapSize = 8\nIntervalSec = 9\n"
         "MaxMsgNum = 10\n",
         {3, "/mon", 5, 6, 7, 8, 9, 10}},
        {"# comment\n\nMsgString = MapSize = 1\n MapSize = 2\nmapsize = 3\n", {}},
        {"MapSize=4096\nMapSize= 4096\n", {}},
        {"MapSize =4096", {.mapSize = 4096}},
        {"MapSizeOfTheArea \t= \t 4096 and more\n", {.mapSize = 4096}},
        {"MapSize = 2\nMapSize = 1\nMapSize = x\nMapSize =\nMapSize 9\n", {.mapSize = 1}},
        {"MapSize = 0x20\n", {.mapSize = 0}},
        {"MapSize = -1\n", {.mapSize = 4294967295U}},
        {"MapSize = 99999999999999999999999\n", {.mapSize = 4294967295U}},
        {"MaxMsgNum = -5\nIntervalSec = -2147483648\n", {.intervalSec = -2147483647 - 1, .maxMsgNum = -5}},
        {"MaxMsgNum = 4294967297\n", {.maxMsgNum = 1}},
        {"MonPath = /a b\n", {.monPath = "/a"}},
        {"MonPath = " + text + "\n", {.monPath = text.substr(0, 4097)}},
        {"#" + std::string(4158, ' ') + "MapSize = 77\n",
         {.mapSize = 77}}, // a long line's second piece is a line
    };
    for (const auto& [lines, expected] : cases) {
        configure(lines);
        EXPECT_TRUE(settings() == expected) << lines;
    }
}

TEST_F(Config, SettersCutToo)
{
    ZEBUConfigInf conf;
    conf.setMonPath("/mon");
    conf.setLogFileName(std::string(5000, 'l').c_str());
    EXPECT_STREQ(conf.szMonPath, "/mon");
    EXPECT_EQ(conf.szLogFile, std::string(4097, 'l'));
}

// ---- Where the trace area lies -------------------------------------------------------------------

TEST_F(Config, AreaLiesBesideTheLogFile)
{
    const std::string longest = "/" + std::string(4096 - 18 - 1, 'p');
    const std::pair<std::string, std::string> cases[] = {
        {"/srv/app/../x//log/./trace", "/srv/x/log/mmap"},
        {"/trace", "//mmap"},
        {longest + "/t", longest + "/mmap"},
        {longest + "p/t", ""},
        {"relative/trace", ""},
        {"", ""},
        {"/" + std::string(4096, 'l'), ""},
    };
    for (const auto& [logFile, directory] : cases) {
        write("MapSize = 5000\nLogFile = " + logFile + "\n");
        const ZEBUConfigInf conf;
        EXPECT_EQ(conf.szMMapDir, directory) << logFile;
        EXPECT_EQ(conf.szMMapFile, directory.empty() ? "" : directory + "/zebu2mmap.mm") << logFile;
        EXPECT_EQ(conf.uMapSize, directory.empty() ? 65536U : 5000U) << logFile;
        EXPECT_EQ(conf.iLoaded, 1) << logFile;
    }
}

// ---- Which file is read --------------------------------------------------------------------------

// With a standard file of its own, in a /opt that only the test sees.
class StandardConfig : public Config
{
protected:
    void SetUp() override
    {
        if (!bPrivateOpt)
            GTEST_SKIP() << "no mount namespace to be had";
        unsetenv("ZEBU2_TRACECNF_FILE");
        std::filesystem::create_directories("/opt/kelvora/ZEBULib2/etc");
        std::filesystem::create_directories("/opt/kelvora/ZEBULib/etc");
        writeFile(cs_szDefaultFile, "LogFile = /std/f\nMapSize = 6000\nMsgString = standard\n");
        writeFile("/opt/kelvora/ZEBULib/etc/D001zebu.cnf",
                  "MapSize = 1\nLogFile = /old/f\nMsgString = old\n");
    }
};

TEST_F(StandardConfig, IsReadWithoutAUsableOverride)
{
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    const std::string far = path("far.cnf");
    writeFile(far, "LogFile = /l/f\nMapSize = 1\nMsgString = far\n");
    const std::string cases[] = {"",
                                 "far.cnf",
                                 path(""),
                                 path("missing"),
                                 path("fifo"),
                                 "/opt/kelvora//ZEBULib2/etc/../etc/D002zebu2.cnf",
                                 "/opt/kelvora/ZEBULib/./etc/D001zebu.cnf"};
    ASSERT_EQ(chdir(path("").c_str()), 0);
    for (const std::string& name : cases) {
        nameFile(name);
        const ZEBUConfigInf conf;
        EXPECT_EQ(conf.uMapSize, 6000U) << name;
        EXPECT_STREQ(conf.szMMapDir, "/opt/kelvora/ZEBULib2/mmap") << name;
        EXPECT_STREQ(conf.szMMapFile, cs_szDefaultArea) << name;
        EXPECT_STREQ(ZEBUConfigInf2().szMsgString, "standard\n") << name;
    }
    nameFile(std::string(4095 - far.size(), '/') + far);
    EXPECT_EQ(ZEBUConfigInf().uMapSize, 1U) << "the longest path there is";
}

TEST_F(StandardConfig, ServesTheClassThatTheOverrideDoesNot)
{
    write("MapSize = 1\nMonPath = /mon\nMsgString = over\n");
    const ZEBUConfigInf conf;
    EXPECT_EQ(conf.uMapSize, 6000U);
    EXPECT_STREQ(conf.szMonPath, "") << "nothing of the refused file stays";
    EXPECT_STREQ(conf.szMMapFile, cs_szDefaultArea);
    EXPECT_STREQ(ZEBUConfigInf2().szMsgString, "over\n");
}

TEST_F(StandardConfig, DefaultsStandWithoutAFileAndWithOneThatNobodyWrites)
{
    ASSERT_EQ(unlink(cs_szDefaultFile), 0);
    ZEBUConfigInf conf;
    ZEBUConfigInf2 conf2;
    EXPECT_TRUE(settings() == Settings());
    EXPECT_EQ(std::string(conf.szLogFile) + conf.szMMapDir + conf.szMMapFile + conf2.szMsgString, "");
    EXPECT_EQ(conf.loadCnf() + conf2.loadCnf(), -2);
    ASSERT_EQ(mkfifo(cs_szDefaultFile, 0600), 0);
    EXPECT_TRUE(settings() == Settings());
}

// ---- The template of the notice ------------------------------------------------------------------

TEST_F(Config, TemplateIsTheRestOfTheLastLine)
{
    const std::pair<std::string, std::string> cases[] = {
        {"MsgString=Switched %f\n", "Switched %f\n"},
        {"MsgStringOf this = that = x\n", "that = x\n"},
        {"MsgString =\ttab\n", "\ttab\n"},
        {" MsgString = indented\nmsgstring = small\n", ""},
        {"MsgString = the longer one\nLogSize = 1\nMsgString = last\n", "last\n"},
        {"MsgString = first\nMsgString without\nMsgString = never\n", "first\n"},
        {"MsgString = " + std::string(300, 'm') + "\n", std::string(255, 'm')},
    };
    for (const auto& [content, expected] : cases) {
        write(content);
        EXPECT_EQ(ZEBUConfigInf2().szMsgString, expected) << content;
    }
}

} // namespace
