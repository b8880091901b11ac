// The text functions of the signal-safe put, and what else of the frame the outside cannot reach.
#include "frame/ForkHandler.h"
#include "output/PMsgSig.h"
#include "support/Sandbox.h"

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
    EXPECT_EQ(ZEBU_memset_r(szTo, 'x', 2), szTo);
    EXPECT_STREQ(szTo, "xxcd");
    EXPECT_EQ(ZEBU_strlen_r(nullptr), 0);
}

TEST(ForkGuards, MayBeRegisteredTwice)
{
    alarm(60);
    EXPECT_EQ(ZEBU2_FileBufferFlush(), -1); // registers them, as a first call beside a fork does in both
    ZEBU_RegisterForkGuards();
    EXPECT_EQ(inChild([] { CHECK(inChild([] { CHECK(ZEBU2_FileBufferFlush() == -1); }) == 0); }), 0);
    EXPECT_EQ(ZEBU2_FileBufferFlush(), -1);
}
