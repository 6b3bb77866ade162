#include "ctl/activity.h"

#include <gtest/gtest.h>

// Rates out of two readings.
namespace quenby {
namespace {

ClassCounters counted(std::uint64_t packets, std::uint64_t bytes, std::uint64_t drops = 0) {
  return {0x80000004, packets, bytes, drops, 0, 30, 1};
}

Activity between(const std::optional<ClassCounters>& before,
                 const std::optional<ClassCounters>& after, double seconds = 2) {
  return activity_between(before, after, seconds);
}

TEST(Activity, IsTheDifferenceOverTheTime) {
  const Activity activity = between(counted(10, 1000, 4), counted(30, 5000, 5));
  EXPECT_EQ(activity.bytes_per_second, 2000);
  EXPECT_EQ(activity.packets_per_second, 10);
  EXPECT_EQ(activity.drops_per_second, 0.5);
  EXPECT_EQ(activity.packets, 30U);
  EXPECT_EQ(activity.drops, 5U);
  EXPECT_EQ(activity.backlog_bytes, 30U);
  EXPECT_TRUE(activity.present);
}

TEST(Activity, OfAClassThatWasMadeAgainCountsFromZero) {
  const Activity activity = between(counted(10, 1000, 4), counted(20, 800, 6));
  EXPECT_EQ(activity.bytes_per_second, 400);
  EXPECT_EQ(activity.packets_per_second, 10);
  EXPECT_EQ(activity.drops_per_second, 3);
}

TEST(Activity, OfDropsThatBeganAgainCountsFromZero) {
  EXPECT_EQ(between(counted(10, 1000, 0xffff'ffff), counted(20, 2000, 8)).drops_per_second, 4);
}

TEST(Activity, OfAClassThatIsNewHasNoRates) {
  const Activity activity = between(std::nullopt, counted(20, 800, 6));
  EXPECT_EQ(activity.bytes_per_second, 0);
  EXPECT_EQ(activity.drops_per_second, 0);
  EXPECT_EQ(activity.packets, 20U);
  EXPECT_TRUE(activity.present);
}

TEST(Activity, OfAClassThatHasGoneIsNone) {
  const Activity activity = between(counted(20, 800, 6), std::nullopt);
  EXPECT_FALSE(activity.present);
  EXPECT_EQ(activity.bytes_per_second, 0);
  EXPECT_EQ(activity.packets, 0U);
}

}  // namespace
}  // namespace quenby
