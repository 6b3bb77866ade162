#include "ctl/look_pace.h"

#include <gtest/gtest.h>

// How often the live screen looks.
namespace quenby {
namespace {

TEST(LookPace, IsTheIntervalWhereALookIsCheap) {
  EXPECT_EQ(seconds_to_next_look(1, 0.01, 0.01), 1);
  EXPECT_EQ(seconds_to_next_look(0.15, 0.005, 0.0058), 0.15);
  // As long as it may take.
  EXPECT_EQ(seconds_to_next_look(1, 0.0, 0.04), 1);
}

TEST(LookPace, IsLongerWhereALookCostsMoreThanFourPerCent) {
  EXPECT_EQ(seconds_to_next_look(1, 0.1, 0.1), 2.6);
  EXPECT_EQ(seconds_to_next_look(0.1, 0.05, 0.02), 0.6);
  EXPECT_EQ(seconds_to_next_look(3600, 0.1, 0.1), 3600);
}

TEST(LookPace, WaitsForALookThatLastsLonger) { EXPECT_EQ(seconds_to_next_look(1, 3, 0.01), 3.3); }

}  // namespace
}  // namespace quenby
