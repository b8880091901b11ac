// Fixed-width text: the pieces lines and headers are built of.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mman.h>

#include <string>

#include "output/ltostr.h"
#include "output/PMsgSig.h"

TEST(Text, IntToStrWritesExactlyItsWidth)
{
    const struct
    {
        int iValue, iWidth;
        const char* pszExpected;
    } cases[] = {{7, 3, "007..."},    {123, 2, "23...."}, {5, 2, "05...."},  {0, 4, "0000.."},
                 {9999, 4, "9999.."}, {42, 0, "......"},  {42, -1, "......"}};
    for (const auto& c : cases) {
        std::string text = "......";
        EXPECT_EQ(ZEBU2_IntToStr(text.data(), c.iValue, c.iWidth), text.data());
        EXPECT_EQ(text, c.pszExpected) << c.iValue << " in " << c.iWidth;
    }
}

TEST(Text, FieldsAreCutOrPadded)
{
    const struct
    {
        const char* pszText;
        const char* pszExpected;
    } cases[] = {{"ab", "ab  |"}, {"abcdef", "abcd|"}, {"", "    |"}, {nullptr, "    |"}, {"abcd", "abcd|"}};
    for (const auto& c : cases) {
        std::string text = "????|";
        ZEBU_PutField(text.data(), c.pszText, 4);
        EXPECT_EQ(text, c.pszExpected);
    }
    std::string hex = "????????|";
    ZEBU_PutHex8(hex.data(), 0x1A2B);
    EXPECT_EQ(hex, "00001A2B|");
}

// The helpers of the signal-safe put look at blocks of 16 bytes, but never at another page.
TEST(Text, SignalSafeHelpersStayInThePageOfTheText)
{
    constexpr size_t page = 4096;
    char* base = static_cast<char*>(mmap(nullptr, 3 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_EQ(mprotect(base + page, page, PROT_READ | PROT_WRITE), 0);
    memset(base + page, 'x', page);
    for (int length = 0; length <= 40; ++length) {
        char* atEnd = base + 2 * page - length - 1;
        memset(atEnd, 'a', static_cast<size_t>(length));
        atEnd[length] = '\0';
        EXPECT_EQ(ZEBU_strlen_r(atEnd), length);
        for (int most : {0, 1, length, length + 1, length + 20}) {
            std::string copy(64, '?');
            ZEBU_strncpy_r(copy.data(), atEnd, most);
            const std::string text = std::string(static_cast<size_t>(length), 'a') + '\0';
            const std::string expected = text.substr(0, static_cast<size_t>(most));
            EXPECT_EQ(copy, expected + std::string(64 - expected.size(), '?')) << length << ", " << most;
        }
    }
    char* atStart = base + page;
    strcpy(atStart, "short");
    EXPECT_EQ(ZEBU_strlen_r(atStart), 5);
    EXPECT_EQ(munmap(base, 3 * page), 0);
}
