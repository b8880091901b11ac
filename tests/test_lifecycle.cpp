// Starting and stopping the process log: results, error values, what is open afterwards.
#include "support/Sandbox.h"

using Lifecycle = Sandbox;

TEST_F(Lifecycle, StartsWritesAndStops)
{
    ASSERT_EQ(ZEBU2_Initialize(ring(), "app"), 0);
    EXPECT_EQ(lastError(), 0);
    EXPECT_EQ(ZEBU2_PutLine(0, "first"), 0);
    EXPECT_EQ(ZEBU2_Initialize(ring(), "app"), -1);
    EXPECT_EQ(lastError(), 0x0600000B);
    EXPECT_EQ(ZEBU2_InitializeM(ring(), "app", 0), -1);
    EXPECT_EQ(lastError(), 0x2700000B);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_EQ(ZEBU2_Finalize(), -1);
    EXPECT_EQ(lastError(), 0x0700000B);
    ASSERT_EQ(ZEBU2_Initialize(ring(), "again"), 0);
    EXPECT_EQ(ZEBU2_PutLine(0, "second"), 0);
    EXPECT_EQ(ZEBU2_Finalize(), 0);
    EXPECT_EQ(ZEBU2_EndLibrary(), 0);
    EXPECT_EQ(bodies(lines(1)), (Lines{"first", "second"}));
    EXPECT_EQ(bodies(areaLines()), (Lines{"first", "second"}));
}
