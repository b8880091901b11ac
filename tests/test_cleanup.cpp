// tests/test_cleanup.cpp -- removal of old trace files.

#include "cleanup/LogCleanup.h"
#include "support/Sandbox.h"

constexpr int AGE = ZEBU2_CLEAR_BY_AGE;
constexpr int NUMBER = ZEBU2_CLEAR_BY_NUMBER;

class Cleanup : public Sandbox
{
protected:
    Cleanup() { std::filesystem::create_directory(path("logs")); }

    std::string in(const std::string& name) const { return path("logs/") + name; }

    // A file that was last modified so many seconds ago.
    void makeFile(const std::string& name, long lSeconds) const
    {
        writeFile(in(name), "content");
        age(in(name), lSeconds);
    }
    Failure clear(const std::string& pattern, int iMode, int iValue) const
    {
        return failure(ZEBU2_LogFileClear(in(pattern).c_str(), iMode, iValue));
    }
    std::set<std::string> names() const
    {
        std::set<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(in("")))
            found.insert(entry.path().filename());
        return found;
    }
};

TEST_F(Cleanup, RulesChooseByPatternAgeAndNumberWhatNobodyHolds)
{
    const std::tuple<const char*, int, int, std::set<std::string>> cases[] = {
        {"[ah]*", AGE, 0, {".a4", "a5", "b", "held", "sub"}},
        {"[ah]*", AGE, 200, {".a4", "a1", "a5", "b", "held", "sub"}},
        {"[ah]*", NUMBER, 0, {".a4", "b", "held", "sub"}},
        {"[ah]*", NUMBER, 2, {".a4", "a1", "a5", "b", "held", "sub"}},
        {"[ah]*", NUMBER, 2147483647, {".a4", "a1", "a2", "a3", "a5", "b", "held", "sub"}},
        {"a[13]", NUMBER, 0, {".a4", "a2", "a5", "b", "held", "sub"}},
        {"*", NUMBER, 2, {"a1", "a5", "held", "sub"}},
    };
    // The last one is from the future.
    const std::pair<const char*, long> files[] = {{"a3", 300},  {"a1", 100}, {"a2", 200},
                                                  {".a4", 400}, {"b", 300},  {"a5", -1000}};
    std::filesystem::create_directory(in("sub"));
    makeFile("held", 500);
    lockAsAnother(in("held"));
    for (const auto& [pszPattern, iMode, iValue, left] : cases) {
        for (const auto& [pszName, lSeconds] : files)
            makeFile(pszName, lSeconds);
        EXPECT_EQ(clear(pszPattern, iMode, iValue), Failure());
        EXPECT_EQ(names(), left) << pszPattern << ' ' << iMode << ' ' << iValue;
    }
}

// Files of one second in the order in which the directory has them, the later ones first.
TEST_F(Cleanup, ManyFilesTakeNoTime)
{
    alarm(30); // compared each with each, they would take minutes
    constexpr long lCount = 300'000;
    ZEBUFindFileList fileList;
    for (long l = 0; l < lCount; ++l)
        ASSERT_TRUE(fileList.addElement(std::to_string(l).c_str(), l * 7919 % lCount / 3));
    fileList.sort();
    const auto key = [](const ZEBUFindFileElement* p) { return std::pair(p->lMtime, atol(p->path())); };
    const ZEBUFindFileElement* pElement = fileList.pHead;
    for (long l = 1; l < lCount; ++l, pElement = pElement->pNext)
        ASSERT_GT(key(pElement), key(pElement->pNext));
    EXPECT_EQ(pElement->pNext, nullptr);
}

TEST_F(Cleanup, NothingIsOpenedThroughAStrangersLink)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can plant what belongs to another";
    makeFile("../victim", 100);
    for (const char* pszLink : {"own", "foreign"})
        ASSERT_EQ(symlink("../victim", in(pszLink).c_str()), 0);
    ASSERT_EQ(lchown(in("foreign").c_str(), 65534, 65534), 0);
    EXPECT_EQ(clear("*", AGE, 0), Failure());
    EXPECT_EQ(names(), std::set<std::string>{"foreign"});
}

TEST_F(Cleanup, ArgumentsAndEntriesAreChecked)
{
    makeFile("a", 100);
    std::string deep = "../d"; // such that ".." in it has a longer path than any call takes
    while (in(deep).size() < 4094)
        deep += deep.size() % 200 == 0 ? '/' : 'd';
    deep.back() = '/';
    std::filesystem::create_directories(in(deep));
    ASSERT_EQ(symlink("nowhere", in("link").c_str()), 0);
    const std::string longest(4096 - in("").size(), '*');
    const std::tuple<std::string, int, int, int, int> cases[] = {
        {longest + "*", NUMBER, 0, 0x0C000001, 0},
        {"*", NUMBER, -1, 0x0C000001, 0},
        {"*", 3, 0, 0x0C000001, 0},
        {"d*/a", NUMBER, 0, 0x0C00000D, ENOENT},
        {"a/*", AGE, 0, 0x0C00000D, ENOTDIR},
        {deep + "*", AGE, 0, 0x0C000014, ENAMETOOLONG},
        {"a", NUMBER, 0, 0x0C000014, ENOENT},
        {"none", AGE, 0, 0x0C000014, ENOENT},
    };
    for (const auto& [pattern, iMode, iValue, iError, iCode] : cases)
        EXPECT_EQ(clear(pattern, iMode, iValue), Failure(-1, iError, iCode));
    EXPECT_EQ(result(ZEBU2_LogFileClear(nullptr, NUMBER, 0)), Result(-1, 0x0C000001));
    EXPECT_EQ(names(), (std::set<std::string>{"a", "link"})) << "removed before the scan is through";
    ASSERT_EQ(unlink(in("link").c_str()), 0);
    EXPECT_EQ(clear(longest, NUMBER, 0), Failure());
    EXPECT_TRUE(names().empty());
}
