// Fixed-width text: the pieces lines and headers are built of.
#include <gtest/gtest.h>

#include <string>

#include "output/ltostr.h"

TEST(Text, IntToStrWritesExactlyItsWidth)
{
    const struct
    {
        int iValue, iWidth;
        const char* pszExpected;
    } cases[] = {{7, 3, "007..."}, {123, 2, "23...."}, {5, 2, "05...."}, {0, 4, "0000.."},
                 {9999, 4, "9999.."}, {42, 0, "......"}, {42, -1, "......"}};
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
