#include "model/number.h"

#include <gtest/gtest.h>
#include <limits>

namespace quenby {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr std::int64_t kMin64 = std::numeric_limits<std::int64_t>::min();
constexpr std::int32_t kMin32 = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMax32 = std::numeric_limits<std::int32_t>::max();

TEST(ToInt64, TruncatesTowardZero) {
  EXPECT_EQ(to_int64(0.0), 0);
  EXPECT_EQ(to_int64(-0.0), 0);
  EXPECT_EQ(to_int64(0.999), 0);
  EXPECT_EQ(to_int64(-0.999), 0);
  EXPECT_EQ(to_int64(1500.9), 1500);
  EXPECT_EQ(to_int64(-1500.9), -1500);
}

TEST(ToInt64, KeepsTheOutermostDoublesOfTheRange) {
  // Doubles just below 2^63 are 1024 apart.
  EXPECT_EQ(to_int64(9223372036854774784.0), 9223372036854774784);
  EXPECT_EQ(to_int64(-9223372036854775808.0), kMin64);
}

TEST(ToInt64, GivesTheSmallestValueForWhatDoesNotFit) {
  for (const double value : {9223372036854775808.0, -9223372036854777856.0, 1e19, -1e19, 1e300,
                             -1e300, kInf, -kInf, kNan, -kNan}) {
    SCOPED_TRACE(value);
    EXPECT_EQ(to_int64(value), kMin64);
  }
}

TEST(ToInt32, TruncatesTowardZeroUpToTheEndsOfTheRange) {
  EXPECT_EQ(to_int32(187.5), 187);
  EXPECT_EQ(to_int32(-187.5), -187);
  EXPECT_EQ(to_int32(2147483647.0), kMax32);
  EXPECT_EQ(to_int32(2147483647.9), kMax32);
  EXPECT_EQ(to_int32(-2147483648.0), kMin32);
  EXPECT_EQ(to_int32(-2147483648.9), kMin32);
}

TEST(ToInt32, GivesTheSmallestValueForWhatDoesNotFit) {
  for (const double value :
       {2147483648.0, -2147483649.0, 4294967296.0, 1e300, -1e300, kInf, -kInf, kNan}) {
    SCOPED_TRACE(value);
    EXPECT_EQ(to_int32(value), kMin32);
  }
}

TEST(ToInt32Saturated, StopsAtTheEndsOfTheRange) {
  EXPECT_EQ(to_int32_saturated(15999.7), 15999);
  EXPECT_EQ(to_int32_saturated(2147483646.0), 2147483646);
  for (const double value : {2147483647.0, 2147483647.5, 2147483648.0, 1e12, 1e300, kInf}) {
    SCOPED_TRACE(value);
    EXPECT_EQ(to_int32_saturated(value), kMax32);
  }
  for (const double value : {-2147483648.0, -1e12, -1e300, -kInf, kNan}) {
    SCOPED_TRACE(value);
    EXPECT_EQ(to_int32_saturated(value), kMin32);
  }
}

TEST(WrappingSum, IsModulo2To64) {
  EXPECT_EQ(wrapping_add(2, -5), -3);
  EXPECT_EQ(wrapping_add(std::numeric_limits<std::int64_t>::max(), 1), kMin64);
  EXPECT_EQ(wrapping_add(kMin64, -1), std::numeric_limits<std::int64_t>::max());
  // 10^19 - 2^64
  EXPECT_EQ(wrapping_add(5'000'000'000'000'000'000, 5'000'000'000'000'000'000),
            -8'446'744'073'709'551'616);
}

TEST(WrappingProduct, IsModulo2To64) {
  EXPECT_EQ(wrapping_multiply(250'000, 1500), 375'000'000);
  EXPECT_EQ(wrapping_multiply(-2, 1500), -3000);
  // 2^32 * 2^31 = 2^63, 2^32 * 2^32 = 2^64
  EXPECT_EQ(wrapping_multiply(std::int64_t{1} << 32, std::int64_t{1} << 31), kMin64);
  EXPECT_EQ(wrapping_multiply(std::int64_t{1} << 32, std::int64_t{1} << 32), 0);
  EXPECT_EQ(wrapping_multiply(kMin64, -1), kMin64);
}

TEST(Low32, DropsTheUpperHalf) {
  EXPECT_EQ(low32(1'250'000), 1'250'000U);
  EXPECT_EQ(low32(4'294'967'295), 4'294'967'295U);
  EXPECT_EQ(low32(4'294'967'296), 0U);
  EXPECT_EQ(low32(4'294'967'301), 5U);
  EXPECT_EQ(low32(-1), 4'294'967'295U);
  EXPECT_EQ(low32(-2), 4'294'967'294U);
  EXPECT_EQ(low32(kMin64), 0U);
}

TEST(Low32Signed, ReadsTheSameBitsAsASignedNumber) {
  EXPECT_EQ(low32_signed(2'147'483'647), kMax32);
  EXPECT_EQ(low32_signed(2'147'483'648), kMin32);
  EXPECT_EQ(low32_signed(4'294'967'295), -1);
  EXPECT_EQ(low32_signed(4'294'967'301), 5);
  EXPECT_EQ(low32_signed(-1), -1);
}

}  // namespace
}  // namespace quenby
