#include <gtest/gtest.h>
#include <limits>

#include "tc/htb_class.h"

// What an HTB class is made with.
namespace quenby {
namespace {

constexpr int kMicroseconds = 1'000'000;
constexpr int kNanoseconds = 1'000'000'000;
constexpr std::int64_t kTwo32 = 4'294'967'296;

TEST(ClassBurst, Is240MillisecondsOfTrafficAndAtLeast1600BytesAndATick) {
  const struct {
    const char* what;
    double rate;
    int hz;
    std::int32_t burst;
  } rows[] = {
      {"max(1.25 + 1600, 1,250,000 / 25 * 6)", 1'250'000, kMicroseconds, 300'000},
      {"the same in nanoseconds", 1'250'000, kNanoseconds, 300'000},
      {"a gigabit", 125'000'000, kNanoseconds, 30'000'000},
      {"nothing", 0, kMicroseconds, 1600},
      {"1000 / 25 * 6 = 240", 1000, kMicroseconds, 1600},
      {"at 100 ticks a second 5000 / 100 + 1600, against 1200", 5000, 100, 1650},
      {"at one tick a second", 1000, 1, 2600},
      {"6666 / 25 * 6 = 1599.84", 6666, kNanoseconds, 1600},
      {"6671 / 25 * 6 = 1601.04", 6671, kNanoseconds, 1601},
      {"each term is truncated by itself: 150 / 100 + 1600 = 1601.5", 150, 100, 1601},
      {"10,003 / 25 * 6 = 2400.72", 10'003, kNanoseconds, 2400},
      {"10^10 / 25 * 6 = 2.4 * 10^9", 1e10, kNanoseconds, 2'147'483'647},
      {"4,294,967,295 / 1 + 1600", 4'294'967'295.0, 1, 2'147'483'647},
      {"no rate at all", 1e300, kNanoseconds, 2'147'483'647},
      {"infinity", std::numeric_limits<double>::infinity(), kNanoseconds, 2'147'483'647},
  };
  for (const auto& row : rows) EXPECT_EQ(class_burst(row.rate, row.hz), row.burst) << row.what;
}

TEST(ClassValues, HandleAndParentAreUnderTheHtbQdisc) {
  const HtbClass root = htb_class(1, 0, {1000, 1000, 0}, kNanoseconds);
  EXPECT_EQ(root.handle, 0x80000001U);
  EXPECT_EQ(root.parent, 0x80000000U);
  const HtbClass upload = htb_class(0x8005, 0x8001, {1000, 1000, 0}, kNanoseconds);
  EXPECT_EQ(upload.handle, 0x80008005U);
  EXPECT_EQ(upload.parent, 0x80008001U);
}

TEST(ClassValues, OfCeilingGuaranteeAndBurst) {
  struct Values {
    std::uint32_t ceil, cburst, rate, burst, quantum;
    bool operator==(const Values&) const = default;
  };
  const struct {
    const char* what;
    ClassRates rates;
    Values values;
  } rows[] = {
      {"10 Mbit/s, a quarter of it guaranteed: 312,500 / 25 * 6 = 75,000",
       {1'250'000, 312'500, 0},
       {1'250'000, 300'000, 312'500, 75'000, 31'250}},
      {"ten gigabit",
       {1'250'000'000, 1'250'000'000, 0},
       {1'250'000'000, 300'000'000, 1'250'000'000, 300'000'000, 200'000}},
      {"9 is kept", {9, 9, 0}, {9, 1600, 9, 1600, 1000}},
      {"a rate below 9 overrides the given burst", {1000, 0, 5000}, {1000, 1600, 8, 8, 1000}},
      {"a given burst is used, but for the ceiling",
       {1'250'000, 1'250'000, 5000},
       {1'250'000, 300'000, 1'250'000, 5000, 125'000}},
      {"a given burst of 1",
       {1'250'000, 1'250'000, 1},
       {1'250'000, 300'000, 1'250'000, 1, 125'000}},
      {"only the low 32 bits count",
       {kTwo32 + 1'250'000, kTwo32 + 1000, kTwo32 + 7},
       {1'250'000, 300'000, 1000, 7, 1000}},
      {"and they are below 9", {kTwo32 + 5, kTwo32, 0}, {8, 8, 8, 8, 1000}},
  };
  for (const auto& row : rows) {
    const HtbClass made = htb_class(5, 1, row.rates, kMicroseconds);
    EXPECT_EQ((Values{made.ceil, made.cburst, made.rate, made.burst, made.quantum}), row.values)
        << row.what;
  }
}

TEST(ClassValues, ARateBelow9Becomes8WithABurstOf8) {
  for (const std::int64_t rate : {0, 1, 5, 8, -1, -2, -1'000'000}) {
    SCOPED_TRACE(rate);
    const HtbClass slow = htb_class(2, 1, {1000, rate, 0}, kMicroseconds);
    EXPECT_EQ(slow, (HtbClass{0x80000002, 0x80000001, 8, 1000, 8, 1600, 1000}));
    const HtbClass cut = htb_class(2, 1, {rate, 1000, 0}, kMicroseconds);
    EXPECT_EQ(cut, (HtbClass{0x80000002, 0x80000001, 1000, 8, 1600, 8, 1000}));
  }
}

// 2^32 ticks of 64 ns are 274.877906944 s.
TEST(ClassValues, ABurstIsCutToWhatTheKernelsClockHolds) {
  const struct {
    std::int64_t rate;
    std::int64_t given;
    std::uint32_t sent;
  } rows[] = {
      {2500, 700'000, 687'194},
      {2500, 687'195, 687'194},
      {2500, 687'194, 687'194},
      {2500, 687'193, 687'193},
      {9, 2'147'483'647, 2473},
      {1'250'000, 2'147'483'647, 343'597'383},
      // 4,294,967,295, as only 32 bits count.
      {1'250'000, -1, 343'597'383},
      {7'812'499, 2'147'483'647, 2'147'483'373},
      // From here on a time that fits would take more than libnl's 31 bits of bytes.
      {7'812'500, 2'147'483'647, 2'147'483'647},
      {7'812'500, 2'147'483'648, 2'147'483'647},
      {4'294'967'295, 2'147'483'647, 2'147'483'647},
      {4'294'967'295, -1, 2'147'483'647},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.given << " bytes at " << row.rate);
    const HtbClass values = htb_class(5, 1, {1'250'000, row.rate, row.given}, kNanoseconds);
    EXPECT_EQ(values.burst, row.sent);
    EXPECT_EQ(values.cburst, 300'000U);
  }
}

TEST(ClassValues, AComputedBurstFitsAsItIs) {
  for (const std::uint32_t rate : {9U, 1000U, 1'250'000U, 7'812'500U, 4'294'967'295U}) {
    SCOPED_TRACE(rate);
    for (const int hz : {1, 100, kNanoseconds}) {
      const HtbClass values = htb_class(5, 1, {rate, rate, 0}, hz);
      EXPECT_EQ(values.burst, static_cast<std::uint32_t>(class_burst(rate, hz)));
      EXPECT_EQ(values.cburst, values.burst);
    }
  }
}

TEST(ClassValues, TheQuantumIsATenthOfTheRateFrom1000To200000) {
  const struct {
    std::int64_t rate;
    std::uint32_t quantum;
  } rows[] = {
      {-1, 1000},
      {0, 1000},
      {8, 1000},
      {9, 1000},
      {9999, 1000},
      {10'000, 1000},
      {10'009, 1000},
      {10'010, 1001},
      {1'999'989, 199'998},
      {1'999'990, 199'999},
      {1'999'999, 199'999},
      {2'000'000, 200'000},
      {2'000'010, 200'000},
      {125'000'000, 200'000},
      {4'294'967'295, 200'000},
      {kTwo32 + 8, 1000},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.rate);
    EXPECT_EQ(htb_class(5, 1, {1'250'000, row.rate, 0}, kNanoseconds).quantum, row.quantum);
  }
}

}  // namespace
}  // namespace quenby
