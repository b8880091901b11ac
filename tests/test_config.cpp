// tests/test_config.cpp -- the configuration file: which one is read, its lines, and the paths in it.
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>

#include "config/Conf2Unix.h"
#include "config/ConfUnix.h"
#include "config/GetPath.h"
#include "support/PrivateOpt.h"
#include "support/Sandbox.h"

namespace {

constexpr char cs_szDefaultFile[] = "/opt/kelvora/ZEBULib2/etc/D002zebu2.cnf";
constexpr char cs_szDefaultArea[] = "/opt/kelvora/ZEBULib2/mmap/zebu2mmap.mm";

// ---- Paths ---------------------------------------------------------------------------------------

struct tagPathCase
{
    const char* pszSource;
    size_t uMax;
    int iResult;
    const char* pszPath;
};

void expectPaths(int (*pFunction)(const char*, char*, size_t), const tagPathCase* pCase, size_t uCount)
{
    for (; uCount > 0; --uCount, ++pCase) {
        char szPath[64] = "untouched";
        EXPECT_EQ(pFunction(pCase->pszSource, szPath, pCase->uMax), pCase->iResult) << pCase->pszSource;
        EXPECT_STREQ(szPath, pCase->pszPath) << pCase->pszSource;
    }
}

TEST(Paths, AbsoluteIsNormalisedByItsText)
{
    constexpr tagPathCase cases[] = {
        {"/", 40, 0, "/"},
        {"/a//b/./c/", 40, 0, "/a/b/c"},
        {"/a/b/../c", 40, 0, "/a/c"},
        {"/a/b/../../../c/d/..", 40, 0, "/c"},
        {"/../x", 40, 0, "/x"},
        {"/a/..", 40, 0, "/"},
        {"///", 40, 0, "/"},
        {"/.../.x/..y/z.", 40, 0, "/.../.x/..y/z."},
        {"", 40, -1, "untouched"},
        {"a/b", 40, -1, "untouched"},
        {"/abc/de", 7, 0, "/abc/de"},
        {"/abc/de", 6, -1, "/abc"},
        {"/abc/de", 3, -1, ""},
        {"/long-that-goes/../de", 3, 0, "/de"},
    };
    expectPaths(ZEBU_GetAbsolutePath, cases, std::size(cases));
}

TEST(Paths, ParentIsOneComponentLess)
{
    constexpr tagPathCase cases[] = {
        {"/a/b/c", 40, 0, "/a/b"}, {"/a/b/c/", 40, 0, "/a/b"}, {"/a", 40, 0, "/"},
        {"/", 40, 0, "/"},         {"/a/..", 40, 0, "/"},      {"a/b", 40, -1, "untouched"},
    };
    expectPaths(ZEBU_GetParentPath, cases, std::size(cases));
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

struct tagSettings
{
    int iRelease = 1;
    std::string monPath = "";
    unsigned int uLogSize = 262144;
    int iLogFNum = 4;
    int iWatchDog = 10;
    unsigned int uMapSize = 65536;
    int iIntervalSec = 0;
    int iMaxMsgNum = 0;
    bool operator==(const tagSettings&) const = default;
};

tagSettings settings()
{
    const ZEBUConfigInf conf;
    return {conf.iRelease,  conf.szMonPath, conf.uLogSize,     conf.iLogFNum,
            conf.iWatchDog, conf.uMapSize,  conf.iIntervalSec, conf.iMaxMsgNum};
}

TEST_F(Config, LinesGiveTheValues)
{
    const struct
    {
        const char* pszLines;
        tagSettings expected;
    } cases[] = {
        {"", {}},
        {"Release = 3\nMonPath = /mon\nLogSize = 5\nLogFNum = 6\nWatchDog = 7\nMapSize = 8\nIntervalSec = 9\n"
         "MaxMsgNum = 10\n",
         {3, "/mon", 5, 6, 7, 8, 9, 10}},
        {"# comment\n\nMsgString = MapSize = 1\n MapSize = 2\nmapsize = 3\n", {}},
        {"MapSize=4096\n", {}},
        {"MapSize= 4096\n", {}},
        {"MapSize =4096", {.uMapSize = 4096}},
        {"MapSize \t= \t 4096 and more\n", {.uMapSize = 4096}},
        {"MapSizeOfTheArea = 4096\n", {.uMapSize = 4096}},
        {"MapSize = 1\nMapSize = 2\n", {.uMapSize = 2}},
        {"MapSize = 1\nMapSize = x\nMapSize =\nMapSize 9\n", {.uMapSize = 1}},
        {"MapSize = 0x20\n", {.uMapSize = 0}},
        {"MapSize = 4294967295\n", {.uMapSize = 4294967295U}},
        {"MapSize = -1\n", {.uMapSize = 4294967295U}},
        {"MapSize = 99999999999999999999999\n", {.uMapSize = 4294967295U}},
        {"MaxMsgNum = -5\nIntervalSec = -2147483648\n", {.iIntervalSec = -2147483647 - 1, .iMaxMsgNum = -5}},
        {"MaxMsgNum = 4294967297\n", {.iMaxMsgNum = 1}},
        {"MonPath = /a b\n", {.monPath = "/a"}},
    };
    for (const auto& test : cases) {
        configure(test.pszLines);
        EXPECT_TRUE(settings() == test.expected) << test.pszLines;
    }
}

TEST_F(Config, TextsAndLinesOfAnyLengthAreCut)
{
    const std::string text(5000, 'x');
    configure("MonPath = " + text + "\n");
    EXPECT_EQ(ZEBUConfigInf().szMonPath, text.substr(0, 4097));

    // The second piece of a long line counts as a line.
    configure("#" + std::string(4158, ' ') + "MapSize = 77\n");
    EXPECT_EQ(ZEBUConfigInf().uMapSize, 77U);
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
    const struct
    {
        std::string logFile;
        std::string directory;
    } cases[] = {
        {"/srv/app/log/trace", "/srv/app/log/mmap"},
        {"/srv/app/../x//log/./trace", "/srv/x/log/mmap"},
        {"/trace", "//mmap"},
        {longest + "/t", longest + "/mmap"},
        {longest + "p/t", ""},
        {"relative/trace", ""},
        {"", ""},
        {"/" + std::string(4096, 'l'), ""},
    };
    for (const auto& test : cases) {
        write("MapSize = 5000\nLogFile = " + test.logFile + "\n");
        const ZEBUConfigInf conf;
        const bool bUsed = !test.directory.empty();
        EXPECT_EQ(conf.szMMapDir, test.directory) << test.logFile;
        EXPECT_EQ(conf.szMMapFile, bUsed ? test.directory + "/zebu2mmap.mm" : "") << test.logFile;
        EXPECT_EQ(conf.uMapSize, bUsed ? 5000U : 65536U) << test.logFile;
        EXPECT_EQ(conf.iLoaded, 1) << test.logFile;
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
    const std::string cases[] = {
        "",
        "far.cnf",
        path(""),
        path("missing"),
        path("fifo"),
        cs_szDefaultFile,
        "/opt/kelvora//ZEBULib2/etc/../etc/D002zebu2.cnf",
        "/opt/kelvora/ZEBULib/./etc/D001zebu.cnf",
    };
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

TEST_F(StandardConfig, NeverWaitsForAWriter)
{
    ASSERT_EQ(unlink(cs_szDefaultFile), 0);
    ASSERT_EQ(mkfifo(cs_szDefaultFile, 0600), 0);
    EXPECT_EQ(ZEBUConfigInf().uMapSize, 65536U);
}

TEST_F(StandardConfig, DefaultsStandWithoutAnyFile)
{
    ASSERT_EQ(unlink(cs_szDefaultFile), 0);
    ZEBUConfigInf conf;
    EXPECT_TRUE(settings() == tagSettings());
    EXPECT_STREQ(conf.szLogFile, "");
    EXPECT_STREQ(conf.szMMapDir, "");
    EXPECT_STREQ(conf.szMMapFile, "");
    EXPECT_EQ(conf.loadCnf(), -1);
    ZEBUConfigInf2 conf2;
    EXPECT_STREQ(conf2.szMsgString, "");
    EXPECT_EQ(conf2.loadCnf(), -1);
}

// ---- The template of the notice ------------------------------------------------------------------

TEST_F(Config, TemplateIsTheRestOfTheLastLine)
{
    const struct
    {
        std::string content;
        std::string expected;
    } cases[] = {
        {"", ""},
        {"MsgString=Switched %f\n", "Switched %f\n"},
        {"MsgString = Switched %f", "Switched %f"},
        {"MsgStringOf this = that = x\n", "that = x\n"},
        {"MsgString =  two\n", " two\n"},
        {"MsgString =\ttab\n", "\ttab\n"},
        {" MsgString = indented\nmsgstring = small\n", ""},
        {"MsgString = the longer one\nLogSize = 1\nMsgString = last\n", "last\n"},
        {"MsgString = first\nMsgString without\nMsgString = never\n", "first\n"},
        {"MsgString = " + std::string(300, 'm') + "\n", std::string(255, 'm')},
    };
    for (const auto& test : cases) {
        write(test.content);
        EXPECT_EQ(ZEBUConfigInf2().szMsgString, test.expected) << test.content;
    }
}

} // namespace
