#include <gtest/gtest.h>

#include "shaper/hardware.h"

// The speed field of a 10 Gbit/s capable port, in bytes per second.
namespace quenby {
namespace {

TEST(SfpPlusSpeed, IsTheNumberInMegabits) {
  const struct {
    const char* field;
    std::int64_t speed;
  } rows[] = {
      {"10000Mb/s\n", 1'250'000'000}, {"10000", 1'250'000'000}, {"2500Mb/s\n", 312'500'000},
      {"2500 Mb/s", 312'500'000},     {"1000\n", 125'000'000},  {"  100Mb/s", 12'500'000},
      {"2.5Gb/s", 312'500},           {"0.00001", 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.field);
    EXPECT_EQ(sfp_plus_speed(row.field), row.speed);
  }
}

constexpr std::int64_t kTenGigabit = 1'250'000'000;

TEST(SfpPlusSpeed, IsTenGigabitForAnEmptyFieldOrZero) {
  for (const char* field : {"", "0", "0Mb/s\n", "0.0", "-0"}) {
    SCOPED_TRACE(field);
    EXPECT_EQ(sfp_plus_speed(field), kTenGigabit);
  }
}

TEST(SfpPlusSpeed, IsTenGigabitForAFieldWithoutANumber) {
  for (const char* field : {"Unknown!", "Unknown!\n", "\n", "abc", "Mb/s", "1e999"}) {
    SCOPED_TRACE(field);
    EXPECT_EQ(sfp_plus_speed(field), kTenGigabit);
  }
}

TEST(SfpPlusSpeed, IsTenGigabitForANumberThatIsNoSpeed) {
  for (const char* field : {"-1", "-2500Mb/s", "inf", "-inf", "nan", "1e300", "-1e300"}) {
    SCOPED_TRACE(field);
    EXPECT_EQ(sfp_plus_speed(field), kTenGigabit);
  }
}

// 0.125 bytes/s; then below 2^63 bytes/s, and above it.
TEST(SfpPlusSpeed, IsJudgedInWholeBytesASecond) {
  EXPECT_EQ(sfp_plus_speed("0.000001"), kTenGigabit);
  EXPECT_EQ(sfp_plus_speed("7e13"), 8'750'000'000'000'000'000);
  EXPECT_EQ(sfp_plus_speed("8e13"), kTenGigabit);
}

}  // namespace
}  // namespace quenby
