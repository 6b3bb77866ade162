#include <gtest/gtest.h>
#include <limits>

#include "tests/model/rates.h"

// Fitting tariffs, default tariff and line to the limit and to each other. All rates in bytes per
// second.
namespace quenby {
namespace {

using test::downloads;
using test::line;
using test::set_of;
using test::uploads;
using test::with_burst;
using test::with_default;

constexpr std::int64_t kLink = 1'250'000;
constexpr std::int64_t kGigabit = 125'000'000;
constexpr std::int64_t kUnset = -2;
constexpr std::int64_t kEmpty = -1;
// No section at all, not one without a speed.
constexpr std::int64_t kNone = -3;
// Two of them are 10^19 - 2^64, which is negative.
constexpr std::int64_t kHalfWay = 5'000'000'000'000'000'000;
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kLargest = std::numeric_limits<double>::max();

struct Configured {
  std::int64_t line;
  std::int64_t def;
  struct Tariff {
    std::int64_t speed;
    double factor = 1.0;
  };
  std::vector<Tariff> tariffs;
  std::int64_t link = kLink;
};

struct Fitted {
  std::int64_t line;
  struct {
    std::int64_t ceiling, guarantee;
  } def;
  struct Tariff {
    std::int64_t ceiling;
    double factor;
    std::int64_t guarantee;
  };
  std::vector<Tariff> tariffs;
};

struct Row {
  const char* what;
  Configured configured;
  Fitted fitted;
};

// The same for both directions; the other one has nothing.
void expect_fitted(const Row& row, Direction way) {
  const Configured& given = row.configured;
  GlobalSet set = line(kUnset);
  set.global.direction(way).speed = given.line;
  set.has_default = given.def != kNone;
  if (set.has_default)
    set.defaults.direction(way).speed = set.defaults.direction(way).ceiling = given.def;
  TariffSet tariffs;
  for (const Configured::Tariff& t : given.tariffs)
    tariffs.addTariff(test::in_direction(way, "t", t.speed, t.factor));

  test::resolve_records(set, tariffs, given.link);
  EXPECT_EQ(set.global.direction(way).speed, row.fitted.line);
  if (set.has_default) {
    EXPECT_EQ(set.defaults.direction(way).speed, row.fitted.def.ceiling);
    EXPECT_EQ(set.defaults.direction(way).ceiling, row.fitted.def.guarantee);
  }
  ASSERT_EQ(tariffs.tariffs().size(), row.fitted.tariffs.size());
  for (std::size_t i = 0; i < row.fitted.tariffs.size(); ++i) {
    const TariffDirSettings& direction = tariffs.tariffs()[i].direction(way);
    EXPECT_EQ(direction.speed, row.fitted.tariffs[i].ceiling);
    EXPECT_EQ(direction.aggregation, row.fitted.tariffs[i].factor);
    EXPECT_EQ(direction.rateBps(), row.fitted.tariffs[i].guarantee);
  }
}

// Line, default tariff and tariffs; what becomes of them.
const Row kRows[] = {
    {"a tariff that fits",
     {1'000'000, kNone, {{600'000}}},
     {1'000'000, {}, {{600'000, 1.0, 600'000}}}},
    {"guarantees that oversubscribe the line",
     {1'000'000, kNone, {{600'000}, {600'000}}},
     {1'000'000, {}, {{600'000, 1.2, 500'000}, {600'000, 1.2, 500'000}}}},
    {"shares stay in proportion: 400,000 and 1,200,000 are halved",
     {800'000, kNone, {{800'000, 2.0}, {1'200'000}}},
     {800'000, {}, {{800'000, 4.0, 200'000}, {800'000, 800'000.0 / 600'000.0, 600'000}}}},
    {"exactly the limit is guaranteed: ceilings alone are cut",
     {1'000'000, kNone, {{4'000'000, 8.0}, {500'000}}},
     {1'000'000, {}, {{1'000'000, 8.0, 125'000}, {500'000, 1.0, 500'000}}}},
    {"a cut tariff is scaled from its new ceiling; a guarantee of nothing, 100 / 1000, stays so",
     {1'000'000, kNone, {{2'000'000}, {100, 1000.0}}},
     {1'000'000, {}, {{1'000'000, 1.0, 1'000'000}, {100, kInf, 0}}}},
    {"an empty speed gets the limit and no guarantee",
     {1'000'000, kNone, {{kEmpty}}},
     {1'000'000, {}, {{1'000'000, kLargest, 0}}}},
    {"the limit of a line without a speed is the link",
     {kUnset, kNone, {{kEmpty}}},
     {kLink, {}, {{kLink, kLargest, 0}}}},
    {"an infinite factor is kept where the guarantees fit",
     {1'000'000, kNone, {{2'000'000, kInf}}},
     {1'000'000, {}, {{1'000'000, kInf, 0}}}},
    {"0 / 0 leaves the old factor: a limit of 0",
     {0, kNone, {{1000, 2.0}, {500}}},
     {0, {}, {{0, 2.0, 0}, {0, 1.0, 0}}}},
    {"0 / 0 leaves the old factor: a speed of 0",
     {1'000'000, kNone, {{0, 3.0}, {2'000'000}}},
     {1'000'000, {}, {{0, 3.0, 0}, {1'000'000, 1.0, 1'000'000}}}},
    {"a wrapped sum looks like no oversubscription",
     {kUnset, kNone, {{kHalfWay}, {kHalfWay}}},
     {2 * kLink, {}, {{kLink, 1.0, kLink}, {kLink, 1.0, kLink}}}},
    {"an empty line has the limit -1", {kEmpty, kNone, {{1000}}}, {kEmpty, {}, {{-1, 1.0, -1}}}},
    {"an unset line becomes the sum of the guarantees when that is larger",
     {kUnset, kNone, {{2'000'000, 4.0}, {3'000'000}}, kGigabit},
     {3'500'000, {}, {{2'000'000, 4.0, 500'000}, {3'000'000, 1.0, 3'000'000}}}},
    {"an unset line becomes the largest ceiling when that is larger",
     {kUnset, kNone, {{2'000'000, 4.0}, {1'000'000, 10.0}}, kGigabit},
     {2'000'000, {}, {{2'000'000, 4.0, 500'000}, {1'000'000, 10.0, 100'000}}}},
    {"an unset line stays so without tariffs", {kUnset, kNone, {}}, {kUnset, {}, {}}},
    {"a line above the link is kept",
     {500'000'000, kNone, {{900'000'000}}, kGigabit},
     {500'000'000, {}, {{kGigabit, 1.0, kGigabit}}}},

    {"a default tariff that fits keeps its guarantee",
     {kUnset, 400'000, {{300'000}}},
     {700'000, {400'000, 400'000}, {{300'000, 1.0, 300'000}}}},
    {"a default tariff at exactly the limit keeps it too",
     {1'000'000, 1'000'000, {}},
     {1'000'000, {1'000'000, 1'000'000}, {}}},
    {"a default tariff above the limit is cut and loses it",
     {1'000'000, 2'000'000, {}},
     {1'000'000, {1'000'000, 0}, {}}},
    {"a default tariff above the link gives an unset line the link's speed",
     {kUnset, 2'000'000, {{600'000}}},
     {kLink, {kLink, 0}, {{600'000, 2.08, 288'461}}}},
    {"a default tariff that oversubscribes the line with others loses its guarantee",
     {1'000'000, 400'000, {{700'000}}},
     {1'000'000, {400'000, 0}, {{700'000, 1.1, 636'363}}}},
    {"a default tariff takes its share",
     {1'000'000, 600'000, {{600'000}}},
     {1'000'000, {600'000, 0}, {{600'000, 1.2, 500'000}}}},
    {"a default tariff of a blocked line is cut to 0", {0, 400'000, {}}, {0, {0, 0}, {}}},
    {"a default tariff of 0 changes nothing", {kUnset, 0, {}}, {kUnset, {0, 0}, {}}},
    {"a default tariff without a speed is left alone",
     {kUnset, kUnset, {{300'000}}},
     {300'000, {kUnset, kUnset}, {{300'000, 1.0, 300'000}}}},
};

TEST(RateResolution, FitsEveryRate) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.what);
    for (const Direction way : kDirections) expect_fitted(row, way);
  }
}

TEST(RateResolution, DirectionsDoNotInfluenceEachOther) {
  TariffSettings t = downloads("a", 2'000'000);
  t.upload.speed = 2'000'000;
  t.upload.aggregation = 4.0;
  TariffSet tariffs = set_of(t);
  // Upload: 500,000 and 600,000 guaranteed of 1,250,000. Download: 2,000,000 of 500,000.
  GlobalSet set = with_default(line(500'000), 400'000);
  set.defaults.upload.speed = set.defaults.upload.ceiling = 600'000;
  test::resolve_records(set, tariffs, kLink);
  EXPECT_EQ(tariffs.tariffs()[0].download.speed, 500'000);
  EXPECT_EQ(tariffs.tariffs()[0].download.aggregation, 1.2);
  EXPECT_EQ(tariffs.tariffs()[0].upload.speed, kLink);
  EXPECT_EQ(tariffs.tariffs()[0].upload.aggregation, 4.0);
  EXPECT_EQ(set.defaults.download.ceiling, 0);
  EXPECT_EQ(set.defaults.upload.ceiling, 600'000);
  EXPECT_EQ(set.global.download.speed, 500'000);
  EXPECT_EQ(set.global.upload.speed, kLink);
}

TEST(RateResolution, LeavesOutTariffsWithoutAddressesAndSpeedsNeverSet) {
  TariffSettings no_address = with_burst(downloads("a", 9'000'000), 5000);
  no_address.addresses.clear();
  no_address.upload.speed = kEmpty;
  const TariffSettings unset = downloads("b", kUnset, 5.0);
  TariffSet tariffs = set_of(no_address, unset, downloads("c", 10));
  GlobalSet set = line(kUnset);
  EXPECT_EQ(test::resolve_records(set, tariffs, kLink).down_sum, 10);
  EXPECT_TRUE(tariffs.tariffs()[0] == no_address);
  EXPECT_TRUE(tariffs.tariffs()[1] == unset);
  EXPECT_EQ(set.global.download.speed, 10);
  EXPECT_EQ(largest_burst(resolve(set, tariffs, kLink).download.tariffs), 0);
}

TEST(RateResolution, LeavesADefaultTariffAloneWhoseSectionWasNotRead) {
  GlobalSet set = with_default(line(kUnset), 2'000'000);
  set.has_default = false;
  TariffSet tariffs = set_of(downloads("a", 300'000));
  test::resolve_records(set, tariffs, kLink);
  EXPECT_EQ(set.defaults.download.speed, 2'000'000);
  EXPECT_EQ(set.defaults.download.ceiling, 2'000'000);
  EXPECT_EQ(set.global.download.speed, 300'000);
}

// Tariffs as they stand, whatever the limit.
TEST(GlobalSpeed, IsRaisedToTariffsThatExceedItUnlessItIsZero) {
  const TariffSet tariffs = set_of(downloads("a", 700), downloads("b", 600), uploads("c", 1000));
  GlobalSet set = line(1000, 0);
  resolve_global_rates(set, tariffs, RateSummary{1300, 1000, 5000, 0, 5000});
  EXPECT_EQ(set.global.download.speed, 1300);
  EXPECT_EQ(set.global.upload.speed, 0);
  set = line(0);
  resolve_global_rates(set, tariffs, RateSummary{1300, 1000, 0, 5000, 5000});
  EXPECT_EQ(set.global.download.speed, 0);
}

TEST(GlobalSpeed, CoversADefaultTariffThatLostItsGuaranteeAsACeiling) {
  GlobalSet set = with_default(line(100), 900);
  resolve_global_rates(set, set_of(downloads("a", 200)), RateSummary{1100, 0, 1000, 1000, 1000});
  EXPECT_EQ(set.defaults.download.ceiling, 0);
  // Guarantees 200, largest ceiling 900.
  EXPECT_EQ(set.global.download.speed, 900);
}

TEST(GlobalSpeed, CountsGuaranteesModulo2To64) {
  GlobalSet set = line(kUnset);
  const TariffSet tariffs = set_of(downloads("a", kHalfWay), downloads("b", kHalfWay));
  resolve_global_rates(set, tariffs, summarize_rates(set, tariffs, kGigabit));
  // The sum is negative; the largest ceiling is left.
  EXPECT_EQ(set.global.download.speed, kHalfWay);
}

TEST(Summary, AddsTheTruncatedGuaranteesOfEachDirection) {
  TariffSettings both = downloads("c", 1000, 3.0);  // 333
  both.upload.speed = 700;
  both.upload.aggregation = 2.0;  // 350
  const TariffSet tariffs =
      set_of(downloads("a", 1000, 3.0), downloads("b", 600), both, uploads("d", 50));
  // 333 + 600 + 333 and 350 + 50
  EXPECT_EQ(summarize_rates(line(kUnset), tariffs, kLink),
            (RateSummary{1266, 400, kLink, kLink, kLink}));
}

TEST(Summary, LimitIsTheLowerOfLineAndLink) {
  const TariffSet none;
  EXPECT_EQ(summarize_rates(line(1'000'000, 2'000'000), none, kLink),
            (RateSummary{0, 0, 1'000'000, kLink, kLink}));
  EXPECT_EQ(summarize_rates(line(0, kLink), none, kLink), (RateSummary{0, 0, 0, kLink, kLink}));
  EXPECT_EQ(summarize_rates(line(kEmpty, kUnset), none, kGigabit),
            (RateSummary{0, 0, -1, kGigabit, kGigabit}));
}

TEST(Summary, StartsWithTheDefaultTariffsGuaranteeWhenItsSectionWasRead) {
  const TariffSet tariffs = set_of(downloads("a", 100));
  GlobalSet set = with_default(line(kUnset), 400);
  EXPECT_EQ(summarize_rates(set, tariffs, kLink).down_sum, 500);
  EXPECT_EQ(summarize_rates(set, tariffs, kLink).up_sum, 0);
  set.defaults.download.ceiling = 30;
  EXPECT_EQ(summarize_rates(set, tariffs, kLink).down_sum, 130);
  set.defaults.download.speed = kUnset;
  EXPECT_EQ(summarize_rates(set, tariffs, kLink).down_sum, 100);
  set = with_default(line(kUnset), 400);
  set.has_default = false;
  EXPECT_EQ(summarize_rates(set, tariffs, kLink).down_sum, 100);
}

TEST(Summary, OfOddTariffs) {
  const struct {
    const char* what;
    TariffSet tariffs;
    std::int64_t sum;
  } rows[] = {
      {"an empty speed counts as -1", set_of(downloads("a", kEmpty)), -1},
      {"-1 / 2 is truncated to 0", set_of(downloads("a", kEmpty, 2.0)), 0},
      {"an infinite factor", set_of(downloads("a", 2'000'000, kInf)), 0},
      {"2^64 is wrapped around", set_of(downloads("a", kHalfWay), downloads("b", kHalfWay)),
       -8'446'744'073'709'551'616},
  };
  for (const auto& row : rows)
    EXPECT_EQ(summarize_rates(line(kUnset), row.tariffs, kLink).down_sum, row.sum) << row.what;
}

TEST(RootBurst, CoversTheLargestTariffBurstAtTheResolvedSpeed) {
  const auto burst = [](const GlobalSet& set, const TariffSet& tariffs, Direction way) {
    return largest_burst(resolve(set, tariffs, kGigabit).direction(way).tariffs);
  };
  constexpr auto kDownload = Direction::download;
  const TariffSettings t = with_burst(downloads("a", 250'000), 3000);
  const TariffSettings small = with_burst(downloads("b", 250'000), 1500);
  TariffSettings up = uploads("b", 300'000);
  up.upload.burst_size = 900;
  EXPECT_EQ(burst(line(1'000'000), set_of(small, t), kDownload), 3000);
  EXPECT_EQ(burst(line(1'000'000), set_of(t, small), kDownload), 3000);
  EXPECT_EQ(burst(line(1'000'000), set_of(downloads("a", 250'000)), kDownload), 0);
  EXPECT_EQ(burst(line(kUnset), set_of(t, up), kDownload), 3000);
  EXPECT_EQ(burst(line(kUnset), set_of(t, up), Direction::upload), 900);
  for (const Direction way : kDirections) EXPECT_EQ(burst(line(0, 0), set_of(t, up), way), 0);
  TariffSettings slow = t;
  slow.download.burst_rate = 1'000'000;
  // Cut to 100,000: 100,000 * 3000 / 1,000,000 = 300.
  EXPECT_EQ(burst(line(100'000), set_of(slow), kDownload), 300);
}

}  // namespace
}  // namespace quenby
