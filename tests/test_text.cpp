// The text functions of the signal-safe put.
#include <gtest/gtest.h>
#include <string.h>

#include "output/PMsgSig.h"

TEST(SignalSafeText, CopiesAndCountsAsTheFunctionsOfCWithoutFilling)
{
    char szTo[] = "......";
    EXPECT_EQ(ZEBU_strncpy_r(szTo, "abcdef", 3), szTo);
    EXPECT_STREQ(szTo, "abc...");
    EXPECT_EQ(ZEBU_strncpy_r(szTo, "xy", 5), szTo);
    EXPECT_EQ(ZEBU_strcpy_r(szTo, nullptr), nullptr);
    EXPECT_EQ(memcmp(szTo, "xy\0...", 6), 0);
    EXPECT_EQ(ZEBU_strcpy_r(szTo, "abcd"), szTo);
    EXPECT_EQ(ZEBU_strlen_r(szTo), 4);
    EXPECT_EQ(ZEBU_strlen_r(nullptr), 0);
}
