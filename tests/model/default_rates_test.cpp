#include <gtest/gtest.h>

#include "tests/model/rates.h"

// What becomes of the default tariff. All rates in bytes per second.
namespace quenby {
namespace {

using test::downloads;
using test::line;
using test::set_of;
using test::with_default;

constexpr std::int64_t kLink = 1'250'000;

GlobalSet resolved(GlobalSet set, TariffSet tariffs) {
  test::resolve_records(set, tariffs, kLink);
  return set;
}

TEST(DefaultTariff, KeepsItsGuaranteeWhereItFits) {
  const GlobalSet set = resolved(with_default(line(-2), 400'000), set_of(downloads("a", 300'000)));
  EXPECT_EQ(set.defaults.download.speed, 400'000);
  EXPECT_EQ(set.defaults.download.ceiling, 400'000);
  // The guarantees add up to 700,000.
  EXPECT_EQ(set.global.download.speed, 700'000);
}

TEST(DefaultTariff, AtExactlyTheLimitKeepsItsGuarantee) {
  const GlobalSet set = resolved(with_default(line(1'000'000), 1'000'000), TariffSet());
  EXPECT_EQ(set.defaults.download.speed, 1'000'000);
  EXPECT_EQ(set.defaults.download.ceiling, 1'000'000);
}

TEST(DefaultTariff, AboveTheLimitIsCutAndLosesItsGuarantee) {
  const GlobalSet set = resolved(with_default(line(1'000'000), 2'000'000), TariffSet());
  EXPECT_EQ(set.defaults.download.speed, 1'000'000);
  EXPECT_EQ(set.defaults.download.ceiling, 0);
  EXPECT_EQ(set.global.download.speed, 1'000'000);
}

TEST(DefaultTariff, AboveTheLinkGivesAnUnsetLineTheLinksSpeed) {
  // Without a guarantee it adds nothing to what is left to the tariff.
  const GlobalSet set =
      resolved(with_default(line(-2), 2'000'000), set_of(downloads("a", 600'000)));
  EXPECT_EQ(set.defaults.download.speed, kLink);
  EXPECT_EQ(set.defaults.download.ceiling, 0);
  EXPECT_EQ(set.global.download.speed, kLink);
}

TEST(DefaultTariff, LosesItsGuaranteeWhenTheSumExceedsTheLimit) {
  const GlobalSet set =
      resolved(with_default(line(1'000'000), 400'000), set_of(downloads("a", 700'000)));
  EXPECT_EQ(set.defaults.download.speed, 400'000);
  EXPECT_EQ(set.defaults.download.ceiling, 0);
  // 700,000 * 1,000,000 / 1,100,000 = 636,363 and the largest ceiling 700,000.
  EXPECT_EQ(set.global.download.speed, 1'000'000);
}

TEST(DefaultTariff, ThatLostItsGuaranteeStillCountsAsACeiling) {
  GlobalSet set = with_default(line(100), 900);
  resolve_global_rates(set, set_of(downloads("a", 200)), RateSummary{1100, 0, 1000, 1000, 1000});
  EXPECT_EQ(set.defaults.download.ceiling, 0);
  // Guarantees 200, largest ceiling 900.
  EXPECT_EQ(set.global.download.speed, 900);
}

TEST(DefaultTariff, WhoseSectionWasNotReadIsLeftAlone) {
  GlobalSet set = with_default(line(-2), 2'000'000);
  set.has_default = false;
  const GlobalSet result = resolved(set, set_of(downloads("a", 300'000)));
  EXPECT_EQ(result.defaults.download.speed, 2'000'000);
  EXPECT_EQ(result.defaults.download.ceiling, 2'000'000);
  EXPECT_EQ(result.global.download.speed, 300'000);
}

TEST(DefaultTariff, WhoseSpeedWasNeverSetIsLeftAlone) {
  const GlobalSet set = resolved(with_default(line(-2), -2), set_of(downloads("a", 300'000)));
  EXPECT_EQ(set.defaults.download.speed, -2);
  EXPECT_EQ(set.global.download.speed, 300'000);
}

TEST(DefaultTariff, OfALineThatIsBlockedIsCutToZero) {
  const GlobalSet set = resolved(with_default(line(0), 400'000), TariffSet());
  EXPECT_EQ(set.defaults.download.speed, 0);
  EXPECT_EQ(set.defaults.download.ceiling, 0);
  EXPECT_EQ(set.global.download.speed, 0);
}

TEST(DefaultTariff, OfZeroChangesNothing) {
  const GlobalSet set = resolved(with_default(line(-2), 0), TariffSet());
  EXPECT_EQ(set.defaults.download.speed, 0);
  EXPECT_EQ(set.defaults.download.ceiling, 0);
  EXPECT_EQ(set.global.download.speed, -2);
}

TEST(DefaultTariff, OversubscribedInUploadOnlyKeepsItsDownloadGuarantee) {
  GlobalSet set = with_default(line(1'000'000, 500'000), 400'000);
  set.defaults.upload.speed = set.defaults.upload.ceiling = 600'000;
  const GlobalSet result = resolved(set, TariffSet());
  EXPECT_EQ(result.defaults.download.ceiling, 400'000);
  EXPECT_EQ(result.defaults.upload.speed, 500'000);
  EXPECT_EQ(result.defaults.upload.ceiling, 0);
}

}  // namespace
}  // namespace quenby
