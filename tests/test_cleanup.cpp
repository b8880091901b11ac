// tests/test_cleanup.cpp -- removal of old trace files, through the exported function.
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
    void makeFile(const std::string& name, long seconds) const { makeFileAt(name, time(nullptr) - seconds); }
    void makeFileAt(const std::string& name, long modified) const
    {
        writeFile(in(name), "content");
        const timespec times[2] = {{modified, 0}, {modified, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, in(name).c_str(), times, 0), 0);
    }

    int clear(const std::string& pattern, int iMode, int iValue) const
    {
        return ZEBU2_LogFileClear(in(pattern).c_str(), iMode, iValue);
    }

    // The names in the directory, in the order of the system, and sorted and separated by blanks.
    Lines scan() const
    {
        Lines names;
        for (const auto& entry : std::filesystem::directory_iterator(in("")))
            names.push_back(entry.path().filename());
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
        const char* pattern;
        int mode, value;
        const char* left;
    } cases[] = {
        {"a*.log", AGE, 0, ".a5.log a6.log other.log sub.log"},
        {"a*.log", AGE, 300, ".a5.log a1.log a2.log a6.log other.log sub.log"},
        {"a*.log", AGE, 500, ".a5.log a1.log a2.log a3.log a4.log a6.log other.log sub.log"},
        {"a*.log", NUMBER, 0, ".a5.log other.log sub.log"},
        {"a*.log", NUMBER, 3, ".a5.log a1.log a2.log a6.log other.log sub.log"},
        {"a*.log", NUMBER, 5, ".a5.log a1.log a2.log a3.log a4.log a6.log other.log sub.log"},
        {"a*.log", NUMBER, 2147483647, ".a5.log a1.log a2.log a3.log a4.log a6.log other.log sub.log"},
        {"a[13].log", NUMBER, 0, ".a5.log a2.log a4.log a6.log other.log sub.log"},
        {"*", NUMBER, 0, "sub.log"},
        {"?a*", NUMBER, 0, "a1.log a2.log a3.log a4.log a6.log other.log sub.log"},
    };
    const std::pair<const char*, long> files[] = {// and their ages; one is from the future
                                                  {"a4.log", 400},  {"a2.log", 200},  {"a1.log", 100},
                                                  {"a3.log", 300},  {".a5.log", 500}, {"other.log", 400},
                                                  {"a6.log", -1000}};
    std::filesystem::create_directory(in("sub.log"));
    for (const auto& [pattern, mode, value, left] : cases) {
        for (const auto& [name, seconds] : files)
            makeFile(name, seconds);
        EXPECT_EQ(clear(pattern, mode, value), 0);
        EXPECT_EQ(names(), left) << pattern << ' ' << mode << ' ' << value;
        EXPECT_EQ(lastError(), 0);
    }
}

TEST_F(Cleanup, EqualTimesKeepTheLaterInTheScanAndTimesCompareInThirtyTwoBits)
{
    for (const char* name : {"a", "b", "c", "d"})
        makeFileAt(name, 1000000000);
    const std::string last = scan().back();
    EXPECT_EQ(clear("*", NUMBER, 1), 0);
    EXPECT_EQ(names(), last);
    makeFileAt("year-2106", 0x100000001);
    makeFileAt("year-1970", 2);
    EXPECT_EQ(clear("year*", NUMBER, 1), 0);
    EXPECT_EQ(names(), last + " year-1970");
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
    makeFile("own.log", 300);
    const auto lock = [&](const char* name) { return lockf(open(in(name).c_str(), O_RDWR), F_TLOCK, 0); };
    Gate locked, done;
    const pid_t holder = startChild([&] {
        CHECK(lock("held.log") == 0);
        locked.open();
        done.wait();
    });
    locked.wait();
    ASSERT_EQ(lock("own.log"), 0);
    EXPECT_EQ(clear("*", AGE, 0) | clear("*", NUMBER, 0), 0);
    EXPECT_EQ(names(), "held.log") << "a lock of the caller protects nothing";
    EXPECT_EQ(lastError(), 0);
    done.open();
    EXPECT_EQ(waitForChild(holder), 0);
    EXPECT_EQ(clear("*", NUMBER, 0), 0);
    EXPECT_EQ(names(), "");
}

TEST_F(Cleanup, FileThatCannotBeWrittenStaysAndAFailedRemovalIsReported)
{
    dropPrivileges();
    makeFile("a", 100);
    makeFile("b", 200);
    ASSERT_EQ(chmod(in("a").c_str(), 0444), 0);
    EXPECT_EQ(clear("*", AGE, 0) | clear("*", NUMBER, 0), 0);
    EXPECT_EQ(names(), "a");
    ASSERT_EQ(chmod(in("a").c_str(), 0644) | chmod(in("").c_str(), 0555), 0);
    for (const int mode : {AGE, NUMBER}) {
        EXPECT_EQ(clear("*", mode, 0), -1);
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
}

TEST_F(Cleanup, ArgumentsAndDirectoryAreChecked)
{
    std::filesystem::create_directory(in("d1"));
    makeFile("a", 100);
    const std::string inOther = in("d*/a"), inFile = in("a/*");
    const std::string longest = in("") + std::string(4096 - in("").size(), '*'), tooLong = longest + "*";
    const struct
    {
        const char* pattern;
        int mode, value, error, code;
    } cases[] = {{nullptr, NUMBER, 0, 0x0C000001, 0},
                 {tooLong.c_str(), NUMBER, 0, 0x0C000001, 0},
                 {"*", NUMBER, -1, 0x0C000001, 0},
                 {"*", 0, 0, 0x0C000001, 0},
                 {"*", 3, 0, 0x0C000001, 0},
                 {inOther.c_str(), NUMBER, 0, 0x0C00000D, ENOENT},
                 {inFile.c_str(), AGE, 0, 0x0C00000D, ENOTDIR}};
    for (const auto& [pattern, mode, value, error, code] : cases) {
        EXPECT_EQ(ZEBU2_LogFileClear(pattern, mode, value), -1);
        EXPECT_EQ(lastError(), error);
        EXPECT_EQ(lastCode(), code);
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
    const std::string files[] = {std::string(4095 - deep.size(), 'b'), std::string(4096 - deep.size(), 'c'),
                                 std::string(255, 'd')};
    for (const std::string& name : files)
        close(open(name.c_str(), O_CREAT | O_WRONLY, 0644));
    EXPECT_EQ(ZEBU2_LogFileClear((deep + "*").c_str(), NUMBER, 0), 0);
    EXPECT_FALSE(exists(files[0])) << "the longest path there is";
    EXPECT_TRUE(exists(files[1]) && exists(files[2]));
}

} // namespace
