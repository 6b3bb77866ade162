#include <gmock/gmock.h>

#include "tests/model/rates.h"

// Which tariffs take part with their prefixes.
namespace quenby {
namespace {

using test::set_of;
using test::tariff;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kLink = 1'250'000;

TariffSettings with(const std::string& name, const std::vector<std::string>& prefixes,
                    std::int64_t speed) {
  TariffSettings t = tariff(name);
  for (const std::string& prefix : prefixes) EXPECT_TRUE(t.addPrefix(prefix)) << prefix;
  t.download.speed = speed;
  return t;
}

GlobalSet line(const std::string& wan, bool ipv6) {
  GlobalSet set = test::line(-2);
  set.global.wan = wan;
  set.global.ipv6 = ipv6;
  return set;
}

const TariffSet kTariffs =
    set_of(with("a", {"2001:db8::/64", "2001:db8:1::1"}, 600), test::downloads("b", 300),
           with("c", {"2001:db8::/48"}, -2), with("d", {}, 50));

TEST(Ip6Rates, ATariffOfPrefixesTakesPartWhereIPv6IsShaped) {
  const ResolvedSettings settings = resolve(line("eth1", true), kTariffs, kLink);
  EXPECT_EQ(settings.summary.down_sum, 900);
  ASSERT_EQ(settings.download.tariffs.size(), 2U);
  EXPECT_EQ(settings.download.tariffs[0].prefixes, kTariffs.tariffs()[0].prefixes);
  EXPECT_EQ(settings.download.tariffs[0].rates, (ClassRates{600, 600, 0}));
  EXPECT_THAT(settings.download.tariffs[1].prefixes, IsEmpty());
  EXPECT_TRUE(settings.download.line.ipv6);
  EXPECT_TRUE(settings.upload.line.ipv6);
  EXPECT_THAT(settings.upload.tariffs, IsEmpty());
}

TEST(Ip6Rates, PrefixesCountForNothingWhereItIsNot) {
  for (const GlobalSet& g : {line("eth1", false), line("", true), line("", false)}) {
    const ResolvedSettings settings = resolve(g, kTariffs, kLink);
    EXPECT_EQ(settings.summary.down_sum, 300);
    ASSERT_EQ(settings.download.tariffs.size(), 1U);
    EXPECT_THAT(settings.download.tariffs[0].addresses, ElementsAre(testing::_));
    EXPECT_FALSE(settings.download.line.ipv6);
  }
}

TEST(Ip6Rates, NeitherDoThoseOfATariffWithAddresses) {
  TariffSettings both = test::downloads("b", 300);
  ASSERT_TRUE(both.addPrefix("2001:db8::1"));
  EXPECT_THAT(resolve(line("eth1", false), set_of(both), kLink).download.tariffs[0].prefixes,
              IsEmpty());
  EXPECT_EQ(resolve(line("eth1", true), set_of(both), kLink).download.tariffs[0].prefixes,
            both.prefixes);
}

TEST(Ip6Rates, RecordsAreResolvedLikeValues) {
  GlobalSet g = line("eth1", true);
  TariffSet records = set_of(with("a", {"2001:db8::1"}, 2 * kLink), test::downloads("b", kLink));
  const ResolvedSettings values = resolve(g, records, kLink);
  resolve_global_rates(g, records, resolve_tariff_rates(g, records, kLink));
  EXPECT_EQ(as_given(records, Direction::download, true), values.download.tariffs);
  EXPECT_EQ(as_given(g, Direction::download), values.download.line);
}

}  // namespace
}  // namespace quenby
