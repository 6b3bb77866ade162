#include <gtest/gtest.h>

#include "tests/model/rates.h"

// Raising the global speed to cover the tariffs, and the burst of the root class. All rates in
// bytes per second.
namespace quenby {
namespace {

using test::downloads;
using test::line;
using test::set_of;
using test::uploads;

// The global set after both steps.
GlobalSet resolved(GlobalSet set, TariffSet tariffs, std::int64_t link_speed) {
  test::resolve_records(set, tariffs, link_speed);
  return set;
}

std::int64_t root_burst(const ResolvedSettings& settings, Direction way) {
  return largest_burst(settings.direction(way).tariffs);
}

TariffSettings with_burst(TariffSettings t, std::int64_t size) {
  t.download.burst_size = size;
  return t;
}

constexpr std::int64_t kGigabit = 125'000'000;

TEST(GlobalSpeed, NeverSetBecomesTheSumOfTheGuaranteesWhenThatIsLarger) {
  // 2,000,000 / 4 + 3,000,000 against the largest ceiling, 3,000,000.
  const TariffSet tariffs = set_of(downloads("a", 2'000'000, 4.0), downloads("b", 3'000'000));
  EXPECT_EQ(resolved(line(-2), tariffs, kGigabit).global.download.speed, 3'500'000);
}

TEST(GlobalSpeed, NeverSetBecomesTheLargestTariffSpeedWhenThatIsLarger) {
  // 2,000,000 / 4 + 1,000,000 / 10 = 600,000
  const TariffSet tariffs = set_of(downloads("a", 2'000'000, 4.0), downloads("b", 1'000'000, 10.0));
  EXPECT_EQ(resolved(line(-2), tariffs, kGigabit).global.download.speed, 2'000'000);
}

TEST(GlobalSpeed, NeverSetStaysSoWithoutTariffs) {
  const GlobalSet set = resolved(line(-2), TariffSet(), kGigabit);
  EXPECT_EQ(set.global.download.speed, -2);
  EXPECT_EQ(set.global.upload.speed, -2);
}

TEST(GlobalSpeed, IsKeptWhereItCoversTheTariffs) {
  const TariffSet tariffs = set_of(downloads("a", 600'000), downloads("b", 600'000));
  // After scaling: 500,000 + 500,000.
  EXPECT_EQ(resolved(line(1'000'000), tariffs, 1'250'000).global.download.speed, 1'000'000);
}

TEST(GlobalSpeed, AboveTheLinkIsKept) {
  const TariffSet tariffs = set_of(downloads("a", 900'000'000));
  EXPECT_EQ(resolved(line(500'000'000), tariffs, kGigabit).global.download.speed, 500'000'000);
}

TEST(GlobalSpeed, OfAnEmptySpeedTariffIsTheLimit) {
  EXPECT_EQ(resolved(line(-2), set_of(downloads("a", -1)), kGigabit).global.download.speed,
            kGigabit);
}

TEST(GlobalSpeed, OfZeroIsNeverRaisedAndGetsNoBurst) {
  GlobalSet set = line(0, 0);
  TariffSettings t = with_burst(downloads("a", 1000), 5000);
  t.upload.speed = 1000;
  t.upload.burst_size = 5000;
  // Tariffs as they stand, so that there is something to raise it to.
  resolve_global_rates(set, set_of(t), RateSummary{1000, 1000, 0, 0, kGigabit});
  EXPECT_EQ(set.global.download.speed, 0);
  EXPECT_EQ(set.global.upload.speed, 0);
  const ResolvedSettings settings = resolve(line(0, 0), set_of(t), kGigabit);
  EXPECT_EQ(root_burst(settings, Direction::download), 0);
  EXPECT_EQ(root_burst(settings, Direction::upload), 0);
}

TEST(GlobalSpeed, IsRaisedToTariffsThatExceedIt) {
  GlobalSet set = line(1000);
  const TariffSet tariffs = set_of(downloads("a", 700), downloads("b", 600));
  resolve_global_rates(set, tariffs, RateSummary{1300, 0, 5000, 5000, 5000});
  EXPECT_EQ(set.global.download.speed, 1300);
}

TEST(GlobalSpeed, CountsGuaranteesModulo2To64) {
  GlobalSet set = line(-2);
  const TariffSet tariffs =
      set_of(downloads("a", 5'000'000'000'000'000'000), downloads("b", 5'000'000'000'000'000'000));
  resolve_global_rates(set, tariffs, summarize_rates(set, tariffs, kGigabit));
  // The sum, 10^19 - 2^64, is negative; the largest ceiling is left.
  EXPECT_EQ(set.global.download.speed, 5'000'000'000'000'000'000);
}

TEST(GlobalSpeed, IgnoresTariffsWithoutAddresses) {
  TariffSettings no_address = with_burst(downloads("a", 2'000'000), 5000);
  no_address.addresses.clear();
  const ResolvedSettings settings = resolve(line(-2), set_of(no_address), kGigabit);
  EXPECT_EQ(settings.download.line.speed, -2);
  EXPECT_EQ(root_burst(settings, Direction::download), 0);
}

std::int64_t download_burst(const GlobalSet& set, const TariffSet& tariffs) {
  return root_burst(resolve(set, tariffs, kGigabit), Direction::download);
}

TEST(RootBurst, CoversTheLargestTariffBurst) {
  const TariffSet tariffs =
      set_of(with_burst(downloads("a", 250'000), 1500), with_burst(downloads("b", 250'000), 3000));
  EXPECT_EQ(download_burst(line(1'000'000), tariffs), 3000);
}

TEST(RootBurst, HasNothingToCoverWithoutTariffBursts) {
  EXPECT_EQ(download_burst(line(1'000'000), set_of(downloads("a", 250'000))), 0);
}

TEST(RootBurst, FollowsTheResolvedSpeed) {
  TariffSettings t = with_burst(downloads("a", 250'000), 3000);
  t.download.burst_rate = 1'000'000;
  // Cut to 100,000: 100,000 * 3000 / 1,000,000 = 300.
  EXPECT_EQ(download_burst(line(100'000), set_of(t)), 300);
}

TEST(LineRates, DirectionsDoNotInfluenceEachOther) {
  TariffSettings up = uploads("b", 300'000);
  up.upload.burst_size = 900;
  const TariffSet tariffs = set_of(with_burst(downloads("a", 200'000), 400), up);
  const ResolvedSettings settings = resolve(line(-2, 250'000), tariffs, kGigabit);
  EXPECT_EQ(settings.download.line.speed, 200'000);
  EXPECT_EQ(root_burst(settings, Direction::download), 400);
  EXPECT_EQ(settings.upload.line.speed, 250'000);
  EXPECT_EQ(root_burst(settings, Direction::upload), 900);
}

}  // namespace
}  // namespace quenby
