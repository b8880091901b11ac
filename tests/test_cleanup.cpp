// tests/test_cleanup.cpp -- removal of old trace files, through the exported function.
#include <dirent.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "support/Sandbox.h"

namespace {

constexpr int AGE = ZEBU2_CLEAR_BY_AGE;
constexpr int NUMBER = ZEBU2_CLEAR_BY_NUMBER;

class Cleanup : public Sandbox
{
protected:
    Cleanup() { std::filesystem::create_directory(path("logs")); }

    std::string in(const std::string& name) const { return path("logs/") + name; }

    // A file that was last modified so many seconds ago, or at a time.
    void makeFile(const std::string& name, long lAge) const { makeFileAt(name, time(nullptr) - lAge); }
    void makeFileAt(const std::string& name, long lModified) const
    {
        writeFile(in(name), "content");
        const timespec times[2] = {{lModified, 0}, {lModified, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, in(name).c_str(), times, 0), 0);
    }

    int clear(const std::string& pattern, int iMode, int iValue) const
    {
        return ZEBU2_LogFileClear(in(pattern).c_str(), iMode, iValue);
    }

    // The names in the directory, in the order of the system or sorted and separated by blanks.
    Lines scan() const
    {
        Lines names;
        DIR* pDirectory = opendir(in("").c_str());
        while (const dirent* pEntry = readdir(pDirectory))
            names.push_back(pEntry->d_name);
        closedir(pDirectory);
        std::erase_if(names, [](const std::string& name) { return name == "." || name == ".."; });
        return names;
    }
    std::string names() const
    {
        Lines sorted = scan();
        std::sort(sorted.begin(), sorted.end());
        std::string joined;
        for (const std::string& name : sorted)
            joined += (joined.empty() ? "" : " ") + name;
        return joined;
    }
};

// As root, lets permission bits count for this process as for any other.
void dropPrivileges()
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[2] = {};
    ASSERT_EQ(syscall(SYS_capset, &header, none), 0);
}

TEST_F(Cleanup, RulesChooseByPatternAgeAndNumber)
{
    const struct
    {
        const char* pszPattern;
        int iMode;
        int iValue;
        const char* pszLeft;
    } cases[] = {
        {"app*.log", AGE, 0, ".app5.log app6.log other.log sub.log"},
        {"app*.log", AGE, 250, ".app5.log app1.log app2.log app6.log other.log sub.log"},
        {"app*.log", AGE, 300, ".app5.log app1.log app2.log app6.log other.log sub.log"},
        {"app*.log", AGE, 500, ".app5.log app1.log app2.log app3.log app4.log app6.log other.log sub.log"},
        {"app*.log", NUMBER, 0, ".app5.log other.log sub.log"},
        {"app*.log", NUMBER, 3, ".app5.log app1.log app2.log app6.log other.log sub.log"},
        {"app*.log", NUMBER, 5, ".app5.log app1.log app2.log app3.log app4.log app6.log other.log sub.log"},
        {"app*.log", NUMBER, 2147483647,
         ".app5.log app1.log app2.log app3.log app4.log app6.log other.log sub.log"},
        {"app[13].log", NUMBER, 0, ".app5.log app2.log app4.log app6.log other.log sub.log"},
        {"*", NUMBER, 0, "sub.log"},
        {"?app*", NUMBER, 0, "app1.log app2.log app3.log app4.log app6.log other.log sub.log"},
        {"none*", NUMBER, 0, ".app5.log app1.log app2.log app3.log app4.log app6.log other.log sub.log"},
    };
    std::filesystem::create_directory(in("sub.log"));
    for (const auto& test : cases) {
        makeFile("app4.log", 400);
        makeFile("app2.log", 200);
        makeFile("app1.log", 100);
        makeFile("app3.log", 300);
        makeFile(".app5.log", 500);
        makeFile("other.log", 400);
        makeFile("app6.log", -1000); // from the future
        EXPECT_EQ(clear(test.pszPattern, test.iMode, test.iValue), 0);
        EXPECT_EQ(names(), test.pszLeft) << test.pszPattern << ' ' << test.iMode << ' ' << test.iValue;
        EXPECT_EQ(lastError(), 0);
    }
}

TEST_F(Cleanup, OfEqualTimesTheLaterInTheScanIsKept)
{
    for (const char* pszName : {"a", "b", "c", "d"})
        makeFileAt(pszName, 1000000000);
    const std::string last = scan().back();
    EXPECT_EQ(clear("*", NUMBER, 1), 0);
    EXPECT_EQ(names(), last);
}

TEST_F(Cleanup, TimesCompareInThirtyTwoBits)
{
    makeFileAt("year-2106", 0x100000001);
    makeFileAt("year-1970", 2);
    EXPECT_EQ(clear("*", NUMBER, 1), 0);
    EXPECT_EQ(names(), "year-1970");
}

TEST_F(Cleanup, PatternWithoutDirectoryMeansTheWorkingDirectory)
{
    makeFile("app1.log", 100);
    ASSERT_EQ(chdir(in("").c_str()), 0);
    EXPECT_EQ(ZEBU2_LogFileClear("app*", NUMBER, 0), 0);
    EXPECT_EQ(names(), "app1.log") << "matched against ./app1.log";
    EXPECT_EQ(ZEBU2_LogFileClear("*app*", NUMBER, 0), 0);
    EXPECT_EQ(names(), "");
}

TEST_F(Cleanup, FileThatAnotherProcessHoldsStays)
{
    makeFile("held.log", 100);
    makeFile("free.log", 200);
    makeFile("own.log", 300);
    Gate locked, done;
    const pid_t iHolder = startChild([&] {
        const int iFd = open(in("held.log").c_str(), O_RDWR);
        CHECK(lockf(iFd, F_TLOCK, 0) == 0);
        locked.open();
        done.wait();
    });
    locked.wait();
    const int iOwn = open(in("own.log").c_str(), O_RDWR);
    ASSERT_EQ(lockf(iOwn, F_TLOCK, 0), 0);
    EXPECT_EQ(clear("*", AGE, 150), 0);
    EXPECT_EQ(names(), "held.log") << "a lock of the caller protects nothing";
    EXPECT_EQ(clear("*", AGE, 0), 0);
    EXPECT_EQ(clear("*", NUMBER, 0), 0);
    EXPECT_EQ(names(), "held.log");
    EXPECT_EQ(lastError(), 0);
    done.open();
    EXPECT_EQ(waitForChild(iHolder), 0);
    EXPECT_EQ(clear("*", NUMBER, 0), 0);
    EXPECT_EQ(names(), "");
}

TEST_F(Cleanup, FileThatCannotBeWrittenStays)
{
    dropPrivileges();
    makeFile("a", 100);
    makeFile("b", 200);
    ASSERT_EQ(chmod(in("a").c_str(), 0444), 0);
    EXPECT_EQ(clear("*", AGE, 0), 0);
    EXPECT_EQ(clear("*", NUMBER, 0), 0);
    EXPECT_EQ(names(), "a");
}

TEST_F(Cleanup, FailedRemovalIsReportedAndTheRestGoesOn)
{
    dropPrivileges();
    makeFile("a", 100);
    ASSERT_EQ(chmod(in("").c_str(), 0555), 0);
    for (const int iMode : {AGE, NUMBER}) {
        EXPECT_EQ(clear("*", iMode, 0), -1);
        EXPECT_EQ(lastError(), 0x0C000008);
        EXPECT_EQ(lastCode(), EACCES);
    }
    ASSERT_EQ(chmod(in("").c_str(), 0755), 0);
}

TEST_F(Cleanup, EntryThatCannotBeExaminedEndsTheScan)
{
    makeFile("a", 100);
    ASSERT_EQ(symlink("nowhere", in("link").c_str()), 0);
    EXPECT_EQ(clear("a", NUMBER, 0), -1) << "whether it matches or not";
    EXPECT_EQ(lastError(), 0x0C000014);
    EXPECT_EQ(lastCode(), ENOENT);
    EXPECT_EQ(names(), "a link") << "nothing is removed before the scan is through";
    EXPECT_EQ(clear("none", AGE, 0), -1);
    EXPECT_EQ(lastError(), 0x0C000014);
}

TEST_F(Cleanup, ArgumentsAndDirectoryAreChecked)
{
    std::filesystem::create_directory(in("d1"));
    makeFile("a", 100);
    const std::string inOther = in("d*/a");
    const std::string inFile = in("a/*");
    const std::string longest = in("") + std::string(4096 - in("").size(), '*');
    const std::string tooLong = longest + "*";
    const struct
    {
        const char* pszPattern;
        int iMode;
        int iValue;
        int iError;
        int iCode;
    } cases[] = {
        {nullptr, NUMBER, 0, 0x0C000001, 0},
        {tooLong.c_str(), NUMBER, 0, 0x0C000001, 0},
        {"*", NUMBER, -1, 0x0C000001, 0},
        {"*", 0, 0, 0x0C000001, 0},
        {"*", 3, 0, 0x0C000001, 0},
        {inOther.c_str(), NUMBER, 0, 0x0C00000D, ENOENT},
        {inOther.c_str(), AGE, 0, 0x0C00000D, ENOENT},
        {inFile.c_str(), NUMBER, 0, 0x0C00000D, ENOTDIR},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(ZEBU2_LogFileClear(test.pszPattern, test.iMode, test.iValue), -1);
        EXPECT_EQ(lastError(), test.iError);
        EXPECT_EQ(lastCode(), test.iCode);
    }
    EXPECT_EQ(names(), "a d1");
    EXPECT_EQ(ZEBU2_LogFileClear(longest.c_str(), NUMBER, 0), 0);
    EXPECT_EQ(names(), "d1");
}

// Paths beyond what the kernel takes exist: they are made from within their directory.
TEST_F(Cleanup, EntriesWithPathsTooLongAreLeftAlone)
{
    std::string deep = in("");
    ASSERT_EQ(chdir(deep.c_str()), 0);
    while (deep.size() < 4000) {
        const std::string level(200, 'd');
        ASSERT_EQ(mkdir(level.c_str(), 0755), 0);
        ASSERT_EQ(chdir(level.c_str()), 0);
        deep += level + "/";
    }
    const std::string names[] = {"a", std::string(4095 - deep.size(), 'b'),
                                 std::string(4096 - deep.size(), 'c'), std::string(255, 'd')};
    for (const std::string& name : names)
        close(open(name.c_str(), O_CREAT | O_WRONLY, 0644));
    EXPECT_EQ(ZEBU2_LogFileClear((deep + "*").c_str(), NUMBER, 0), 0);
    EXPECT_NE(access(names[0].c_str(), F_OK), 0);
    EXPECT_NE(access(names[1].c_str(), F_OK), 0) << "the longest path there is";
    EXPECT_EQ(access(names[2].c_str(), F_OK), 0);
    EXPECT_EQ(access(names[3].c_str(), F_OK), 0);
}

} // namespace
