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
      {"2.5Gb/s", 312'500},           {"0.00001", 1},           {"7e13", 8'750'000'000'000'000'000},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.field);
    EXPECT_EQ(sfp_plus_speed(row.field), row.speed);
  }
}

TEST(SfpPlusSpeed, IsTenGigabitWhereTheFieldIsNoSpeed) {
  for (const char* field :
       {// Nothing.
        "", "0", "0Mb/s\n", "0.0", "-0",
        // No number.
        "Unknown!", "Unknown!\n", "\n", "abc", "Mb/s", "1e999",
        // Not in whole bytes a second: 0.125 of them, and 2^63 or more.
        "0.000001", "8e13", "-1", "-2500Mb/s", "inf", "-inf", "nan", "1e300", "-1e300"})
    EXPECT_EQ(sfp_plus_speed(field), 1'250'000'000) << field;
}

}  // namespace
}  // namespace quenby
