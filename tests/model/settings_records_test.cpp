#include <gtest/gtest.h>

#include "model/default_settings.h"
#include "model/global_set.h"
#include "model/global_settings.h"
#include "model/tariff_settings.h"

// Initial values, clearing and equality of the records.
namespace quenby {
namespace {

TEST(SetEnabled, TakesTrueFalseAndAnEmptyText) {
  GlobalSettings settings;
  EXPECT_TRUE(settings.setEnabled("false"));
  EXPECT_FALSE(settings.enabled);
  EXPECT_TRUE(settings.setEnabled("true"));
  EXPECT_TRUE(settings.enabled);
  EXPECT_TRUE(settings.setEnabled(""));
  EXPECT_FALSE(settings.enabled);
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

TEST(GlobalSettings, DifferInEveryField) {
  const GlobalSettings base;
  GlobalSettings other;
  other.wan = "eth1";
  EXPECT_FALSE(base == other);
  other = base;
  other.enabled = false;
  EXPECT_FALSE(base == other);
  other = base;
  other.ipv6 = true;
  EXPECT_FALSE(base == other);
  other = base;
  other.download.speed = 0;
  EXPECT_FALSE(base == other);
  other = base;
  other.upload.speed = 1;
  EXPECT_FALSE(base == other);
  EXPECT_TRUE(base == base);
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
  DefaultSettings a;
  DefaultSettings b;
  a.upload.ceiling = 1;
  EXPECT_FALSE(a == b);
  b.upload.ceiling = 1;
  EXPECT_TRUE(a == b);
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
  const TariffDirSettings base(true);
  TariffDirSettings other(true);
  EXPECT_TRUE(base == other);
  other.id = 4;
  EXPECT_FALSE(base == other);
  other = base;
  other.aggregation = 1.0000000000000002;
  EXPECT_FALSE(base == other);
  other = base;
  other.burst_rate = 1;
  EXPECT_FALSE(base == other);
  other = base;
  other.burst_size = 1;
  EXPECT_FALSE(base == other);
  other = base;
  other.qdisc = 2;
  EXPECT_FALSE(base == other);
  other = base;
  other.speed = 0;
  EXPECT_FALSE(base == other);
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

}  // namespace
}  // namespace quenby
