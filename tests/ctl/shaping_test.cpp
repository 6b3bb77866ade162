#include "ctl/shaping.h"

#include <gmock/gmock.h>

#include "ctl/direction_name.h"
#include "tests/ctl/shaping_fixture.h"

// What is watched of a configuration.
namespace quenby {
namespace {

using test::kMbit;
using test::line;
using test::load_of;
using test::shaped;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

std::string number(const std::optional<std::int64_t>& rate) {
  return rate ? std::to_string(*rate) : "-";
}

// "DIRECTION DEVICE NUMBER NAME: configured guarantee and ceiling, resolved ones".
Lines classes(const Shaping& shaping) {
  Lines lines;
  for (const ShapedClass& c : shaping.classes) {
    lines.push_back(direction_name(c.planned.way) + (" " + c.planned.device) + " " +
                    std::to_string(c.planned.number) + " " + c.planned.name + ": " +
                    number(c.configured_guarantee) + " " + number(c.configured_ceiling) + ", " +
                    std::to_string(c.planned.htb.rate) + " " + std::to_string(c.planned.htb.ceil));
  }
  return lines;
}

TEST(Shaping, HasConfiguredAndResolvedRates) {
  TariffSettings shared = shaped("a", 4, "10.0.0.1");
  shared.setAggregation("4");
  EXPECT_THAT(classes(shaping_of(load_of(line(), shared), test::kGigabitPort)),
              ElementsAre("upload eth1 1 root: 625000 625000, 625000 625000",
                          "upload eth1 2 system: - 625000, 8 625000",
                          "upload eth1 4 a: 15625 62500, 15625 62500",
                          "download ifb_ingr 1 root: 1250000 1250000, 1250000 1250000",
                          "download ifb_ingr 2 system: - 1250000, 8 1250000",
                          "download ifb_ingr 4 a: 31250 125000, 31250 125000"));
}

TEST(Shaping, KeepsWhatTheFilesSayWhereTheLineHasLess) {
  const Shaping shaping = shaping_of(
      load_of(line(), shaped("a", 4, "10.0.0.1", "20000"), shaped("b", 5, "10.0.0.2", "20000")),
      test::kGigabitPort);
  const ShapedClass& last = shaping.classes.back();
  EXPECT_EQ(last.configured_guarantee, 20 * kMbit);
  EXPECT_EQ(last.configured_ceiling, 20 * kMbit);
  EXPECT_EQ(last.planned.htb.rate, 5 * kMbit);
  EXPECT_EQ(last.planned.htb.ceil, 10 * kMbit);
  EXPECT_EQ(shaping.directions[1].limit, 10 * kMbit);
  EXPECT_EQ(shaping.directions[1].guarantees, 40 * kMbit);
}

TEST(Shaping, HasNoConfiguredRateWhereThereIsNoNumber) {
  const Shaping shaping =
      shaping_of(load_of(line(), shaped("a", 4, "10.0.0.1", "fast", "fast")), test::kGigabitPort);
  EXPECT_EQ(shaping.classes.back().configured_ceiling, std::nullopt);
  EXPECT_EQ(shaping.classes.back().configured_guarantee, std::nullopt);
  EXPECT_EQ(shaping.classes.back().planned.htb.ceil, 10 * kMbit);
}

TEST(Shaping, KnowsTheDefaultTariff) {
  GlobalSet global = line();
  global.has_default = true;
  global.defaults.upload.setSpeed("64");
  global.defaults.upload.ceiling = 8000;
  const Lines lines = classes(shaping_of(load_of(global), test::kGigabitPort));
  EXPECT_EQ(lines.at(2), "upload eth1 3 defaultQoSIPQueue: 8000 8000, 8000 8000");
}

TEST(Shaping, OnTheImqDeviceTheDefaultClassIsTheDefaultTariffs) {
  GlobalSet global = line("");
  global.has_default = true;
  global.defaults.download.setSpeed("64");
  global.defaults.download.ceiling = 8000;
  EXPECT_THAT(classes(shaping_of(load_of(global, shaped("a", 4, "10.0.0.1")), test::kGigabitPort)),
              ElementsAre("upload imq0 1 root: 625000 625000, 625000 625000",
                          "upload imq0 4 a: 62500 62500, 62500 62500",
                          "download imq0 1 root: 1250000 1250000, 1250000 1250000",
                          "download imq0 2 defaultQoSIPQueue: 8000 8000, 8 8000",
                          "download imq0 4 a: 125000 125000, 125000 125000"));
}

TEST(Shaping, TellsTariffsFromTheLine) {
  const Shaping shaping = test::two_tariffs();
  EXPECT_TRUE(shaping.classes[0].is_root());
  EXPECT_FALSE(shaping.classes[0].is_tariff());
  EXPECT_FALSE(shaping.classes[1].is_root());
  EXPECT_FALSE(shaping.classes[1].is_tariff());
  EXPECT_TRUE(shaping.classes[2].is_tariff());
  EXPECT_EQ(shaping.tariffs, 2U);
}

TEST(Shaping, HasNoClassesWhereItIsSwitchedOff) {
  GlobalSet global = line();
  global.global.enabled = false;
  const Shaping shaping =
      shaping_of(load_of(global, shaped("a", 4, "10.0.0.1")), test::kGigabitPort);
  EXPECT_FALSE(shaping.enabled);
  EXPECT_THAT(shaping.classes, IsEmpty());
  EXPECT_EQ(shaping.tariffs, 1U);
}

TEST(Shaping, HasNoClassesWhileTheWanInterfaceIsMissing) {
  const Shaping shaping =
      shaping_of(load_of(line(), shaped("a", 4, "10.0.0.1")), {kMbit, {false, ""}});
  EXPECT_TRUE(shaping.enabled);
  EXPECT_THAT(shaping.classes, IsEmpty());
  EXPECT_EQ(shaping.directions[0].device, "eth1");
  EXPECT_EQ(shaping.has_wan, false);
}

}  // namespace
}  // namespace quenby
