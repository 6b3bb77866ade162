#include <gtest/gtest.h>
#include <limits>

#include "tests/model/rates.h"

// Summing the guarantees up and fitting the tariffs to the limit. All rates in bytes per second.
namespace quenby {
namespace {

using test::download_of;
using test::downloads;
using test::line;
using test::set_of;
using test::uploads;
using test::with_default;

constexpr std::int64_t kLink = 1'250'000;
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kLargest = std::numeric_limits<double>::max();

TEST(Summary, AddsTheTruncatedGuaranteesOfEachDirection) {
  TariffSettings both = downloads("c", 1000, 3.0);  // 333
  both.upload.speed = 700;
  both.upload.aggregation = 2.0;  // 350
  const TariffSet tariffs =
      set_of(downloads("a", 1000, 3.0), downloads("b", 600), both, uploads("d", 50));
  // 333 + 600 + 333 and 350 + 50
  EXPECT_EQ(summarize_rates(line(-2), tariffs, kLink),
            (RateSummary{1266, 400, kLink, kLink, kLink}));
}

TEST(Summary, LimitIsTheLowerOfLineAndLink) {
  const TariffSet none;
  EXPECT_EQ(summarize_rates(line(1'000'000, 2'000'000), none, kLink),
            (RateSummary{0, 0, 1'000'000, kLink, kLink}));
  EXPECT_EQ(summarize_rates(line(0, kLink), none, kLink), (RateSummary{0, 0, 0, kLink, kLink}));
  EXPECT_EQ(summarize_rates(line(-1, -2), none, 125'000'000),
            (RateSummary{0, 0, -1, 125'000'000, 125'000'000}));
}

TEST(Summary, StartsWithTheDefaultTariffsGuaranteeWhenItsSectionWasRead) {
  const TariffSet tariffs = set_of(downloads("a", 100));
  GlobalSet set = with_default(line(-2), 400);
  EXPECT_EQ(summarize_rates(set, tariffs, kLink).down_sum, 500);
  EXPECT_EQ(summarize_rates(set, tariffs, kLink).up_sum, 0);
  set.defaults.download.ceiling = 30;
  EXPECT_EQ(summarize_rates(set, tariffs, kLink).down_sum, 130);
  set.has_default = false;
  EXPECT_EQ(summarize_rates(set, tariffs, kLink).down_sum, 100);
}

TEST(Summary, LeavesOutADefaultSpeedThatWasNeverSet) {
  GlobalSet set = with_default(line(-2), -2);
  set.defaults.download.ceiling = 400;
  EXPECT_EQ(summarize_rates(set, TariffSet(), kLink).down_sum, 0);
}

TEST(Summary, CountsAnEmptySpeedAsMinusOne) {
  EXPECT_EQ(summarize_rates(line(-2), set_of(downloads("a", -1)), kLink).down_sum, -1);
  // -1 / 2 is truncated to 0.
  EXPECT_EQ(summarize_rates(line(-2), set_of(downloads("a", -1, 2.0)), kLink).down_sum, 0);
}

TEST(Summary, WrapsAt64Bits) {
  const TariffSet tariffs =
      set_of(downloads("a", 5'000'000'000'000'000'000), downloads("b", 5'000'000'000'000'000'000));
  // 10^19 - 2^64
  EXPECT_EQ(summarize_rates(line(-2), tariffs, kLink).down_sum, -8'446'744'073'709'551'616);
}

TEST(Summary, IgnoresTariffsWithoutAddressesAndSpeedsNeverSet) {
  TariffSettings no_address = downloads("a", 1000);
  no_address.addresses.clear();
  const TariffSet tariffs = set_of(no_address, downloads("b", -2), downloads("c", 10));
  EXPECT_EQ(summarize_rates(line(-2), tariffs, kLink).down_sum, 10);
}

RateSummary resolved(GlobalSet set, TariffSet& tariffs, std::int64_t link_speed) {
  return test::resolve_records(set, tariffs, link_speed);
}

TEST(TariffRates, ScaleTwoGuaranteesThatOversubscribeTheLine) {
  TariffSet tariffs = set_of(downloads("a", 600'000), downloads("b", 600'000));
  const RateSummary summary = resolved(line(1'000'000), tariffs, kLink);
  EXPECT_EQ(summary, (RateSummary{1'200'000, 0, 1'000'000, kLink, kLink}));
  for (const std::size_t i : {0U, 1U}) {
    // 600,000 * 1,000,000 / 1,200,000 = 500,000 and 600,000 / 500,000 = 1.2
    EXPECT_EQ(download_of(tariffs, i).aggregation, 1.2);
    EXPECT_EQ(download_of(tariffs, i).speed, 600'000);
  }
}

TEST(TariffRates, ScaleACutTariffFromItsNewCeiling) {
  TariffSet tariffs = set_of(downloads("a", 2'000'000), downloads("b", 100, 1000.0));
  resolved(line(1'000'000), tariffs, kLink);
  // 2,000,000 * 1,000,000 / 2,000,000 = 1,000,000, which is the new ceiling too.
  EXPECT_EQ(download_of(tariffs, 0).aggregation, 1.0);
  EXPECT_EQ(download_of(tariffs, 0).speed, 1'000'000);
}

TEST(TariffRates, KeepSharesInProportion) {
  TariffSet tariffs = set_of(downloads("a", 800'000, 2.0), downloads("b", 1'200'000));
  resolved(line(800'000), tariffs, kLink);
  // Guarantees 400,000 and 1,200,000 make 1,600,000: halved to 200,000 and 600,000.
  EXPECT_EQ(download_of(tariffs, 0).aggregation, 4.0);
  EXPECT_EQ(download_of(tariffs, 0).speed, 800'000);
  EXPECT_EQ(download_of(tariffs, 1).aggregation, 800'000.0 / 600'000.0);
  EXPECT_EQ(download_of(tariffs, 1).speed, 800'000);
}

TEST(TariffRates, OnlyCutTheCeilingWhereTheGuaranteesFit) {
  TariffSet tariffs = set_of(downloads("a", 4'000'000, 8.0), downloads("b", 500'000));
  resolved(line(1'000'000), tariffs, kLink);
  // 500,000 + 500,000 is exactly the limit.
  EXPECT_EQ(download_of(tariffs, 0).aggregation, 8.0);
  EXPECT_EQ(download_of(tariffs, 0).speed, 1'000'000);
  EXPECT_EQ(download_of(tariffs, 1).aggregation, 1.0);
  EXPECT_EQ(download_of(tariffs, 1).speed, 500'000);
}

TEST(TariffRates, OversubscriptionInOneDirectionLeavesTheOtherAlone) {
  TariffSettings t = downloads("a", 2'000'000);
  t.upload.speed = 2'000'000;
  t.upload.aggregation = 4.0;
  TariffSet tariffs = set_of(t);
  // Upload: 500,000 guaranteed of 1,250,000. Download: 2,000,000 of 500,000.
  resolved(line(500'000), tariffs, kLink);
  EXPECT_EQ(tariffs.tariffs()[0].download.speed, 500'000);
  EXPECT_EQ(tariffs.tariffs()[0].download.aggregation, 1.0);
  EXPECT_EQ(tariffs.tariffs()[0].upload.speed, kLink);
  EXPECT_EQ(tariffs.tariffs()[0].upload.aggregation, 4.0);
}

TEST(TariffRates, AnEmptySpeedGetsTheLimitAndNoGuarantee) {
  TariffSettings t = downloads("a", -1);
  t.upload.speed = -1;
  TariffSet tariffs = set_of(t);
  resolved(line(1'000'000), tariffs, kLink);
  EXPECT_EQ(tariffs.tariffs()[0].download.aggregation, kLargest);
  EXPECT_EQ(tariffs.tariffs()[0].download.speed, 1'000'000);
  EXPECT_EQ(tariffs.tariffs()[0].download.rateBps(), 0);
  EXPECT_EQ(tariffs.tariffs()[0].upload.aggregation, kLargest);
  EXPECT_EQ(tariffs.tariffs()[0].upload.speed, kLink);
}

TEST(TariffRates, AGuaranteeOfNothingGetsAnInfiniteFactor) {
  // 100 / 1000 is truncated to 0; the other tariff oversubscribes the line.
  TariffSet tariffs = set_of(downloads("a", 100, 1000.0), downloads("b", 2'000'000));
  resolved(line(1'000'000), tariffs, kLink);
  EXPECT_EQ(download_of(tariffs, 0).aggregation, kInf);
  EXPECT_EQ(download_of(tariffs, 0).speed, 100);
  EXPECT_EQ(download_of(tariffs, 0).rateBps(), 0);
}

TEST(TariffRates, AnInfiniteFactorIsKeptWhereTheGuaranteesFit) {
  TariffSet tariffs = set_of(downloads("a", 2'000'000, kInf));
  const RateSummary summary = resolved(line(1'000'000), tariffs, kLink);
  EXPECT_EQ(summary.down_sum, 0);
  EXPECT_EQ(download_of(tariffs, 0).aggregation, kInf);
  EXPECT_EQ(download_of(tariffs, 0).speed, 1'000'000);
}

TEST(TariffRates, AFactorThatIsNoNumberLeavesTheOldOne) {
  // Limit 0: 1000 * 0 / 1000 = 0 and 0 / 0.
  TariffSet blocked = set_of(downloads("a", 1000, 2.0), downloads("b", 500));
  resolved(line(0), blocked, kLink);
  EXPECT_EQ(download_of(blocked, 0).aggregation, 2.0);
  EXPECT_EQ(download_of(blocked, 0).speed, 0);
  EXPECT_EQ(download_of(blocked, 1).aggregation, 1.0);
  // A tariff of speed 0: 0 * L / S = 0 and 0 / 0.
  TariffSet tariffs = set_of(downloads("a", 0, 3.0), downloads("b", 2'000'000));
  resolved(line(1'000'000), tariffs, kLink);
  EXPECT_EQ(download_of(tariffs, 0).aggregation, 3.0);
  EXPECT_EQ(download_of(tariffs, 0).speed, 0);
}

TEST(TariffRates, AWrappedSumLooksLikeNoOversubscription) {
  TariffSet tariffs =
      set_of(downloads("a", 5'000'000'000'000'000'000), downloads("b", 5'000'000'000'000'000'000));
  resolved(line(-2), tariffs, kLink);
  EXPECT_EQ(download_of(tariffs, 0).aggregation, 1.0);
  EXPECT_EQ(download_of(tariffs, 0).speed, kLink);
}

TEST(TariffRates, TheDefaultTariffTakesItsShare) {
  TariffSet tariffs = set_of(downloads("a", 600'000));
  resolved(with_default(line(1'000'000), 600'000), tariffs, kLink);
  EXPECT_EQ(download_of(tariffs, 0).aggregation, 1.2);
  TariffSet alone = set_of(downloads("a", 600'000));
  resolved(line(1'000'000), alone, kLink);
  EXPECT_EQ(download_of(alone, 0).aggregation, 1.0);
}

TEST(TariffRates, LeaveTariffsWithoutAddressesAndSpeedsNeverSetAlone) {
  TariffSettings no_address = downloads("a", 9'000'000);
  no_address.addresses.clear();
  no_address.upload.speed = -1;
  const TariffSettings unset = downloads("b", -2, 5.0);
  TariffSet tariffs = set_of(no_address, unset, downloads("c", 2'000'000));
  resolved(line(1'000'000), tariffs, kLink);
  EXPECT_TRUE(tariffs.tariffs()[0] == no_address);
  EXPECT_TRUE(tariffs.tariffs()[1] == unset);
}

TEST(TariffRates, WithAnEmptyGlobalSpeedFollowTheLimitOfMinusOne) {
  TariffSet tariffs = set_of(downloads("a", 1000));
  resolved(line(-1), tariffs, kLink);
  // 1000 * -1 / 1000 = -1 and -1 / -1 = 1
  EXPECT_EQ(download_of(tariffs, 0).aggregation, 1.0);
  EXPECT_EQ(download_of(tariffs, 0).speed, -1);
}

}  // namespace
}  // namespace quenby
