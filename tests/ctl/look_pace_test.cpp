#include "ctl/look_pace.h"

#include <gtest/gtest.h>

// How often the live screen looks, and at what.
namespace quenby {
namespace {

using Clock = LookPace::Clock;

Clock::time_point at(double seconds) {
  return Clock::time_point(
      std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds)));
}

// After looks at all that begin at 10 s.
LookPace after_look_at_all(double interval, double elapsed, double used) {
  LookPace pace(interval);
  pace.note(true, at(10), elapsed, used);
  return pace;
}

TEST(LookPace, TheFirstLookIsAtAll) { EXPECT_TRUE(LookPace(1).is_at_all(at(0))); }

TEST(LookPace, EveryLookIsAtAllWhereThatIsCheap) {
  for (const double used : {0.0, 0.01, 0.0299}) {
    const LookPace pace = after_look_at_all(1, 0.001, used);
    EXPECT_EQ(pace.interval(), 1);
    EXPECT_EQ(pace.interval_of_all(), 1);
    EXPECT_TRUE(pace.is_at_all(at(10.999)));
    EXPECT_TRUE(pace.is_at_all(at(11.02)));
  }
}

TEST(LookPace, LooksAtAllTakeThreePerCent) {
  const LookPace pace = after_look_at_all(1, 0.1, 0.1);
  EXPECT_EQ(pace.interval(), 1);
  EXPECT_EQ(pace.interval_of_all(), 4);
  EXPECT_FALSE(pace.is_at_all(at(11)));
  EXPECT_FALSE(pace.is_at_all(at(13.02)));
  EXPECT_TRUE(pace.is_at_all(at(13.99)));
}

TEST(LookPace, ALookThatLastsLongerIsWaitedFor) {
  EXPECT_EQ(after_look_at_all(1, 3.1, 0.001).interval_of_all(), 4);
  EXPECT_EQ(after_look_at_all(3600, 3.1, 0.9).interval_of_all(), 3600);
}

TEST(LookPace, LooksAtWhatIsShownTakeOnePerCentInBetween) {
  LookPace pace = after_look_at_all(0.1, 0.05, 0.03);
  EXPECT_DOUBLE_EQ(pace.interval_of_all(), 1.1);
  pace.note(false, at(10.1), 0.001, 0.0009);
  EXPECT_EQ(pace.interval(), 0.1);
  pace.note(false, at(10.2), 0.001, 0.0039);
  EXPECT_EQ(pace.interval(), 0.4);
  pace.note(true, at(11.1), 0.05, 0.03);
  EXPECT_DOUBLE_EQ(pace.interval_of_all(), 1.2);
}

TEST(LookPace, GoesOnFasterWhenItMay) {
  LookPace pace = after_look_at_all(0.1, 0.05, 0.03);
  pace.note(false, at(10.1), 0.1, 0.008);
  EXPECT_EQ(pace.interval(), 0.9);
  pace.note(true, at(11.5), 0.01, 0.002);
  EXPECT_EQ(pace.interval(), 0.1);
  EXPECT_EQ(pace.interval_of_all(), 0.1);
}

}  // namespace
}  // namespace quenby
