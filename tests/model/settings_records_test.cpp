#include <gtest/gtest.h>
#include <utility>

#include "model/default_settings.h"
#include "model/global_set.h"
#include "model/global_settings.h"
#include "model/tariff_settings.h"
#include "tests/support/tariffs.h"

// Initial values, clearing and equality of the records.
namespace quenby {
namespace {

TEST(SetEnabled, TakesTrueFalseAndAnEmptyText) {
  GlobalSettings settings;
  const std::pair<const char*, bool> rows[] = {{"false", false}, {"true", true}, {"", false}};
  for (const auto& [text, enabled] : rows) {
    EXPECT_TRUE(settings.setEnabled(text));
    EXPECT_EQ(settings.enabled, enabled) << text;
  }
}

TEST(SetEnabled, RefusesEveryOtherText) {
  for (const bool before : {true, false}) {
    for (const char* text : {"TRUE", "True", "FALSE", "yes", "no", "1", "0", "on", " true", "true ",
                             " ", "truefalse", "t"}) {
      SCOPED_TRACE(text);
      GlobalSettings settings;
      settings.enabled = before;
      EXPECT_FALSE(settings.setEnabled(text));
      EXPECT_EQ(settings.enabled, before);
    }
  }
}

TEST(GlobalSettings, StartWithNothingSetAndEnabled) {
  const GlobalSettings settings;
  EXPECT_EQ(settings.download.speed, -2);
  EXPECT_EQ(settings.upload.speed, -2);
  EXPECT_EQ(settings.wan, "");
  EXPECT_TRUE(settings.enabled);
  EXPECT_TRUE(settings.download.download());
  EXPECT_FALSE(settings.upload.download());
}

TEST(GlobalSettings, ClearGoesBackToTheStart) {
  GlobalSettings settings;
  settings.download.speed = 1;
  settings.upload.speed = 2;
  settings.wan = "eth1";
  settings.enabled = false;
  settings.ipv6 = true;
  settings.clear();
  EXPECT_TRUE(settings == GlobalSettings());
  EXPECT_TRUE(settings.download.download());
  EXPECT_FALSE(settings.upload.download());
}

// Each change makes the record another one.
template <typename Record>
void expect_difference(std::initializer_list<void (*)(Record&)> changes,
                       const Record& base = Record()) {
  int index = 0;
  for (const auto change : changes) {
    SCOPED_TRACE(index++);
    Record other = base;
    EXPECT_TRUE(base == other);
    change(other);
    EXPECT_FALSE(base == other);
  }
}

TEST(GlobalSettings, DifferInEveryField) {
  expect_difference<GlobalSettings>({
      [](GlobalSettings& g) { g.wan = "eth1"; },
      [](GlobalSettings& g) { g.enabled = false; },
      [](GlobalSettings& g) { g.ipv6 = true; },
      [](GlobalSettings& g) { g.download.speed = 0; },
      [](GlobalSettings& g) { g.upload.speed = 1; },
  });
}

TEST(DefaultSettings, HaveOneNameForFilesAndOneForPeople) {
  EXPECT_EQ(GlobalSettings::name(), "global");
  EXPECT_EQ(DefaultSettings::name(), "defaultqosipqueue");
  EXPECT_EQ(DefaultSettings::printName(), "defaultQoSIPQueue");
}

TEST(DefaultSettings, ClearTakesSpeedAndCeilingBack) {
  DefaultSettings settings;
  settings.download.speed = settings.download.ceiling = 125;
  settings.upload.ceiling = 7;
  EXPECT_FALSE(settings == DefaultSettings());
  settings.clear();
  EXPECT_EQ(settings.download.speed, -2);
  EXPECT_EQ(settings.download.ceiling, 0);
  EXPECT_EQ(settings.upload.ceiling, 0);
  EXPECT_TRUE(settings == DefaultSettings());
}

TEST(DefaultSettings, DifferInTheCeilingAlone) {
  expect_difference<DefaultSettings>({[](DefaultSettings& d) { d.upload.ceiling = 1; }});
}

TEST(DirectionEquality, LooksAtSpeedAndDirection) {
  GlobalDirSettings a(true);
  GlobalDirSettings b(true);
  EXPECT_TRUE(a == b);
  b.speed = 5;
  EXPECT_FALSE(a == b);
  EXPECT_FALSE(a == GlobalDirSettings(false));
}

TEST(DirectionEquality, LooksAtEveryFieldOfATariffDirection) {
  expect_difference<TariffDirSettings>(
      {
          [](TariffDirSettings& d) { d.id = 4; },
          [](TariffDirSettings& d) { d.aggregation = 1.0000000000000002; },
          [](TariffDirSettings& d) { d.burst_rate = 1; },
          [](TariffDirSettings& d) { d.burst_size = 1; },
          [](TariffDirSettings& d) { d.qdisc = 2; },
          [](TariffDirSettings& d) { d.speed = 0; },
      },
      TariffDirSettings(true));
}

TEST(DirectionEquality, NeverHoldsBetweenKinds) {
  const TariffDirSettings tariff(true);
  const DefaultDirSettings def(true);
  const BandwidthSettings& tariff_base = tariff;
  const BandwidthSettings& def_base = def;
  EXPECT_FALSE(tariff_base == def_base);
  EXPECT_FALSE(def_base == tariff_base);
}

TEST(GlobalSet, StartsWithNeitherSectionSeen) {
  const GlobalSet set;
  EXPECT_FALSE(set.has_global);
  EXPECT_FALSE(set.has_default);
  EXPECT_TRUE(set.global == GlobalSettings());
  EXPECT_TRUE(set.defaults == DefaultSettings());
}

TEST(GlobalSet, IsCopiedWhole) {
  GlobalSet set;
  set.global.wan = "eth1";
  set.defaults.upload.ceiling = 9;
  set.has_default = true;
  GlobalSet copy(set);
  set.global.wan = "eth2";
  set.defaults.upload.ceiling = 1;
  EXPECT_EQ(copy.global.wan, "eth1");
  EXPECT_EQ(copy.defaults.upload.ceiling, 9);
  EXPECT_TRUE(copy.has_default);
  EXPECT_FALSE(copy.has_global);
}

TariffSettings full_tariff() {
  TariffSettings t = test::tariff("a", 9);
  t.addCIDR("10.0.0.1/32");
  t.addPrefix("2001:db8::/64");
  t.setAggregation("4");
  t.setQDisc("sfq");
  t.download.setSpeed("1000");
  t.upload.burst_size = 1500;
  return t;
}

TEST(TariffSettings, ClearGoesBackToTheStart) {
  TariffSettings t = full_tariff();
  t.clear();
  EXPECT_TRUE(t == TariffSettings());
  EXPECT_TRUE(t.address_texts.empty() && t.addresses.empty() && t.prefixes.empty());
  EXPECT_EQ(t.name, "");
  EXPECT_EQ(t.id, 0);
  EXPECT_EQ(t.qdisc_str(), "none");
  EXPECT_EQ(t.aggregation_text, "1");
  for (const Direction way : kDirections) {
    EXPECT_EQ(t.direction(way).id, 0);
    EXPECT_EQ(t.direction(way).qdisc, 0);
    EXPECT_EQ(t.direction(way).speed, -2);
    EXPECT_EQ(t.direction(way).aggregation, 1.0);
    EXPECT_EQ(t.direction(way).burst_size, 0);
    EXPECT_EQ(t.direction(way).download(), way == Direction::download);
  }
}

TEST(TariffSettings, DifferInEveryFieldButThePrefixLength) {
  expect_difference<TariffSettings>({
                                        [](TariffSettings& t) { t.id = 10; },
                                        [](TariffSettings& t) { t.name = "b"; },
                                        [](TariffSettings& t) { t.aggregation_text = "4.0"; },
                                        [](TariffSettings& t) { t.addresses[0] = 1; },
                                        [](TariffSettings& t) { t.addCIDR("10.0.0.2"); },
                                        [](TariffSettings& t) { t.addresses.clear(); },
                                        [](TariffSettings& t) { t.prefixes[0].length = 65; },
                                        [](TariffSettings& t) { t.addPrefix("2001:db8::1"); },
                                        [](TariffSettings& t) { t.prefixes.clear(); },
                                        [](TariffSettings& t) { t.qdisc = 1; },
                                        [](TariffSettings& t) { t.download.speed = 0; },
                                        [](TariffSettings& t) { t.upload.burst_size = 0; },
                                    },
                                    full_tariff());
  TariffSettings other = full_tariff();
  other.address_texts[0] = "10.0.0.1/24";
  EXPECT_TRUE(other == full_tariff());
}

TEST(TariffSettings, OrderOfAddressesCounts) {
  TariffSettings a = full_tariff();
  a.addCIDR("10.0.0.2");
  TariffSettings b = a;
  std::swap(b.addresses[0], b.addresses[1]);
  EXPECT_FALSE(a == b);
}

}  // namespace
}  // namespace quenby
