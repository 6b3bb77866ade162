#include <gtest/gtest.h>
#include <limits>

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

TEST(SfpPlusSpeed, IsTenGigabitForAnEmptyFieldOrZero) {
  for (const char* field : {"", "0", "0Mb/s\n", "0.0", "-0"}) {
    SCOPED_TRACE(field);
    EXPECT_EQ(sfp_plus_speed(field), 1'250'000'000);
  }
}

// Without a number the reader of numbers gives -1, which is multiplied like any other.
TEST(SfpPlusSpeed, OfAFieldWithoutANumberIsThatOfMinusOne) {
  for (const char* field : {"Unknown!\n", "\n", "-1", "Mb/s"}) {
    SCOPED_TRACE(field);
    EXPECT_EQ(sfp_plus_speed(field), -125'000);
  }
}

TEST(SfpPlusSpeed, BeyondTheRangeIsTheSmallestNumber) {
  for (const char* field : {"inf", "nan", "1e300"}) {
    SCOPED_TRACE(field);
    EXPECT_EQ(sfp_plus_speed(field), std::numeric_limits<std::int64_t>::min());
  }
}

}  // namespace
}  // namespace quenby
