#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

#include "model/default_settings.h"
#include "model/global_settings.h"
#include "model/tariff_dir_settings.h"

// One direction of a record: speed, guarantee and burst size.
namespace quenby {
namespace {

constexpr std::int64_t kMin64 = std::numeric_limits<std::int64_t>::min();
constexpr int kMin32 = std::numeric_limits<int>::min();

struct Speed {
  std::string text;
  std::int64_t bytes_per_second;
  std::int64_t kbps;
};

TEST(SetSpeed, StoresBytesPerSecond) {
  const std::vector<Speed> rows = {
      {"2000", 250'000, 2000},
      {"  2000\t", 250'000, 2000},
      {"1.5", 187, 1},
      {"100mbit", 12'500, 100},
      {"0", 0, 0},
      {"0.001", 0, 0},
      {"0.008", 1, 0},
      {"1", 125, 1},
      {"0x10", 2000, 16},
      {"1e6 kbit/s", 125'000'000, 1'000'000},
      {"9e15", 1'125'000'000'000'000'000, 9'000'000'000'000'000},
  };
  for (const Speed& row : rows) {
    SCOPED_TRACE(row.text);
    GlobalDirSettings direction(true);
    EXPECT_TRUE(direction.setSpeed(row.text));
    EXPECT_EQ(direction.speed, row.bytes_per_second);
    EXPECT_EQ(direction.speedKbps(), row.kbps);
  }
}

TEST(SetSpeed, TakesEmptyNonNumericAndNegativeTextsAsAnEmptyValue) {
  for (const char* text : {"", " ", "letters", "-5", "-0.001", "-inf", "k100", "- 5", "1e-400"}) {
    SCOPED_TRACE(text);
    GlobalDirSettings direction(false);
    EXPECT_TRUE(direction.setSpeed(text));
    EXPECT_EQ(direction.speed, -1);
    EXPECT_EQ(direction.speedKbps(), -1);
  }
}

TEST(SetSpeed, RefusesWhatDoesNotFit64Bits) {
  for (const char* text :
       {"1e16", "9.3e15", "1e300", "inf", "INFINITY", "nan", "-nan", "0x1p60",
        "99999999999999999999", "123456789012345678901234567890", "1e300kbit", " 1e300 "}) {
    SCOPED_TRACE(text);
    GlobalDirSettings direction(true);
    direction.speed = 777;
    EXPECT_FALSE(direction.setSpeed(text));
    EXPECT_EQ(direction.speed, 777);
  }
}

TEST(Speed, IsMinusTwoUntilItIsSetAndCountsAsZeroKilobits) {
  const GlobalDirSettings direction(true);
  EXPECT_EQ(direction.speed, -2);
  EXPECT_EQ(direction.speedKbps(), 0);
}

TEST(Guarantee, OfTheLineIsItsSpeed) {
  GlobalDirSettings direction(true);
  direction.speed = 1'250'000;
  EXPECT_EQ(direction.rateBps(), 1'250'000);
}

TEST(Guarantee, OfTheDefaultTariffIsItsCeiling) {
  DefaultDirSettings direction(true);
  direction.speed = 1'250'000;
  EXPECT_EQ(direction.rateBps(), 0);
  direction.ceiling = 625'000;
  EXPECT_EQ(direction.rateBps(), 625'000);
}

TEST(Guarantee, OfATariffIsItsSpeedOverTheAggregationFactor) {
  const struct {
    std::int64_t speed;
    double factor;
    std::int64_t guarantee;
  } rows[] = {
      {1000, 1.0, 1000},
      {1000, 4.0, 250},
      {1000, 3.0, 333},
      {1000, 0.5, 2000},
      {-1, 1.0, -1},
      {-1, 2.0, 0},
      {-2, 1.0, -2},
      {0, 4.0, 0},
      {1000, std::numeric_limits<double>::max(), 0},
      {1000, std::numeric_limits<double>::infinity(), 0},
      {1'000'000'000'000, 1e-300, kMin64},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.speed << " / " << row.factor);
    TariffDirSettings direction(true);
    direction.speed = row.speed;
    direction.aggregation = row.factor;
    EXPECT_EQ(direction.rateBps(), row.guarantee);
  }
}

TEST(BurstSize, IsSpeedTimesSizeOverBurstRate) {
  constexpr std::int64_t kTwo32 = 4'294'967'296;
  const struct {
    const char* what;
    std::int64_t size, rate, speed;
    int expected;
  } rows[] = {
      {"375,000,000 / 2,000,000 = 187.5", 1500, 2'000'000, 250'000, 187},
      {"1", 1500, 375'000'000, 250'000, 1},
      {"less than 1", 1500, 375'000'001, 250'000, 0},
      {"the smallest rates", 1500, 1, 1, 1500},
      {"the product takes the whole size", kTwo32, kTwo32, 1000, 1000},
      {"an empty speed goes through as the number that it is", 1500, 1000, -1, -1},
      {"so does an unset one", 1500, 1000, -2, -3},
      {"an empty burst rate is -1", 1500, -1, 2, -3000},

      {"no size", 0, 2'000'000, 250'000, 0},
      {"no speed", 1500, 2'000'000, 0, 0},
      {"neither rate", 1500, 0, 0, 0},
      {"without a burst rate the size", 1500, 0, 250'000, 1500},
      {"without any rate the size", 1500, 0, -2, 1500},
      {"the size's low 32 bits", kTwo32 + 5, 0, 250'000, 5},
      {"the size's low 32 bits with a sign", kTwo32 / 2, 0, 250'000, kMin32},

      {"2^32 * 2^32 wraps to 0", kTwo32, 1000, kTwo32, 0},
      {"2^32 * (2^32 + 2) wraps to 2^33; / 2^23", kTwo32 + 2, 8'388'608, kTwo32, 1024},
      {"2^32 * 2^31 wraps to -2^63; / 2^40", kTwo32 / 2, 256 * kTwo32, kTwo32, -8'388'608},
      {"2.5 * 10^14 is beyond the range", 1'000'000'000, 1, 250'000, kMin32},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    TariffDirSettings direction(true);
    direction.burst_size = row.size;
    direction.burst_rate = row.rate;
    direction.speed = row.speed;
    EXPECT_EQ(direction.burstSize(), row.expected);
  }
}

TEST(TariffDirection, TakesClassNumbersFrom1To15999) {
  for (const int number : {1, 4, 15'000, 15'999}) {
    TariffDirSettings direction(true);
    EXPECT_TRUE(direction.setID(number));
    EXPECT_EQ(direction.id, number);
  }
  for (const int number : {0, -1, -3, 16'000, 16'388, std::numeric_limits<int>::max(),
                           std::numeric_limits<int>::min()}) {
    SCOPED_TRACE(number);
    TariffDirSettings direction(true);
    direction.id = 7;
    EXPECT_FALSE(direction.setID(number));
    EXPECT_EQ(direction.id, 7);
  }
}

}  // namespace
}  // namespace quenby
