#include "ctl/plan_value.h"

#include <gmock/gmock.h>

#include "ctl/plan_output.h"
#include "tests/support/tariffs.h"

// What a plan makes of an edit. That quenby then does it is shown with the program itself.
namespace quenby {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Lines = std::vector<std::string>;

constexpr std::int64_t kMbit = 125'000;
const PlanFacts kFacts = {1000 * kMbit, {true, ""}};

TariffSettings shaped(const std::string& name, int id, const std::string& address) {
  TariffSettings tariff = test::tariff(name, id);
  tariff.addCIDR(address);
  tariff.download.setSpeed("1000");
  tariff.upload.setSpeed("500");
  return tariff;
}

GlobalSet line(const std::string& wan) {
  GlobalSet set;
  set.has_global = true;
  set.global.wan = wan;
  set.global.download.setSpeed("10000");
  set.global.upload.setSpeed("5000");
  return set;
}

// Tariff "b" comes to "a".
Edit adding(const GlobalSet& global) {
  Edit edit;
  edit.line_before = edit.line = global;
  edit.stored = test::set_of<TariffConfig>(shaped("a", 4, "10.0.0.1"));
  edit.added = test::set_of(shaped("b", 5, "10.0.0.2"));
  edit.tariffs = edit.stored;
  edit.tariffs.update(edit.added, false, false);
  edit.work = KernelWork::change;
  return edit;
}

// "DEVICE NUMBER NAME", with a star for what the command touches.
Lines classes(const Plan& plan) {
  Lines lines;
  for (const PlannedClass& c : plan.classes)
    lines.push_back(c.device + " " + std::to_string(c.number) + " " + c.name +
                    (c.touched ? " *" : ""));
  return lines;
}

TEST(PlanOfAChange, IsABuildWhereSomethingIsMissing) {
  PlanFacts facts = kFacts;
  std::vector<std::size_t> asked;
  facts.stands = [&asked](const ResolvedSettings& settings) {
    asked.push_back(settings.tariffs.tariffs().size());
    return asked.size() > 1;
  };
  const Plan missing = plan_of(adding(line("eth1")), facts);
  EXPECT_EQ(missing.way, PlannedWay::anew);
  EXPECT_EQ(missing.reason, "rebuild: something that a change relies on is missing");
  EXPECT_FALSE(missing.commands.empty());
  const Plan standing = plan_of(adding(line("eth1")), facts);
  EXPECT_EQ(standing.way, PlannedWay::in_place);
  // What stands before the change has tariff "a" alone.
  EXPECT_THAT(asked, ElementsAre(1, 1));
}

TEST(PlanOfAChange, TouchesTheRootAndWhatChanges) {
  const Plan plan = plan_of(adding(line("eth1")), kFacts);
  EXPECT_EQ(plan.way, PlannedWay::in_place);
  EXPECT_THAT(classes(plan), ElementsAre("eth1 1 root *", "eth1 2 system", "eth1 4 a", "eth1 5 b *",
                                         "ifb_ingr 1 root *", "ifb_ingr 2 system", "ifb_ingr 4 a",
                                         "ifb_ingr 5 b *"));
  EXPECT_THAT(plan.commands, IsEmpty());
  EXPECT_THAT(plan.added, ElementsAre("b"));
}

TEST(PlanOfAChange, HasMarksOnTheWanDeviceAlone) {
  EXPECT_EQ(plan_of(adding(line("eth1")), kFacts).classes.at(3).mark, 0x80000005U);
  EXPECT_EQ(plan_of(adding(line("eth1")), kFacts).classes.at(0).mark, std::nullopt);
  EXPECT_EQ(plan_of(adding(line("")), kFacts).classes.at(1).mark, std::nullopt);
}

TEST(PlanOfAChange, CountsBothDirectionsOfTheImqDeviceAlike) {
  EXPECT_THAT(classes(plan_of(adding(line("")), kFacts)),
              ElementsAre("imq0 1 root *", "imq0 4 a", "imq0 5 b *", "imq0 1 root *", "imq0 4 a",
                          "imq0 5 b *"));
}

TEST(PlanOfAChange, IsMadeAnewWhileTheWanInterfaceIsMissing) {
  const Plan plan = plan_of(adding(line("eth1")), {kMbit, {false, ""}});
  EXPECT_EQ(plan.way, PlannedWay::anew);
  EXPECT_THAT(plan.classes, IsEmpty());
  EXPECT_FALSE(plan.commands.empty());
}

TEST(PlanOfAChange, IsResolvedToThePort) {
  const Plan plan = plan_of(adding(line("eth1")), {kMbit, {true, ""}});
  EXPECT_EQ(plan.way, PlannedWay::anew);
  EXPECT_EQ(plan.reason, "rebuild: the guarantees exceed a limit");
  // Two tariffs of 1 Mbit/s share 1 Mbit/s.
  EXPECT_EQ(plan.classes.back().htb.rate, kMbit / 2);
  EXPECT_EQ(plan.classes.back().htb.ceil, kMbit);
}

TEST(PlanOfFilesAlone, HoldsNothing) {
  Edit edit = adding(line("eth1"));
  edit.work = KernelWork::none;
  const Plan plan = plan_of(edit, kFacts);
  EXPECT_EQ(plan.way, PlannedWay::nothing);
  EXPECT_THAT(plan.classes, IsEmpty());
  EXPECT_THAT(plan.added, ElementsAre("b"));
}

TEST(PlanOfALine, NamesWhatChangesInIt) {
  Edit edit;
  edit.line_before = line("eth1");
  edit.line = line("eth2");
  edit.line.has_default = true;
  edit.line.defaults.upload.setSpeed("64");
  edit.work = KernelWork::rebuild;
  edit.save_line = true;
  const Plan plan = plan_of(edit, kFacts);
  ASSERT_EQ(plan.line.size(), 2U);
  EXPECT_EQ(plan.line[0].name, "global");
  EXPECT_EQ(plan.line[0].values.at(0).key, "wan");
  EXPECT_EQ(plan.line[0].values.at(0).before, "eth1");
  EXPECT_EQ(plan.line[0].values.at(0).after, "eth2");
  EXPECT_EQ(plan.line[1].name, "defaultqosipqueue");
  EXPECT_EQ(plan.line[1].values.at(0).before, std::nullopt);
}

TEST(PlanOfPrefixes, NamesThemWhereTheyCount) {
  GlobalSet global = line("eth1");
  global.global.ipv6 = true;
  Edit edit = adding(global);
  TariffSettings b = shaped("b", 5, "10.0.0.2");
  ASSERT_TRUE(b.addPrefix("2001:DB8:0:1::9/64") && b.addPrefix("2001:db8::7"));
  edit.added = test::set_of(b);
  edit.tariffs.update(edit.added, true, false);
  const std::string text = to_text(plan_of(edit, kFacts));
  EXPECT_THAT(text, HasSubstr("mark 0x80000005, addresses 10.0.0.2, prefixes 2001:db8:0:1::/64 "
                              "2001:db8::7\n"));
  const std::string json = json_text(plan_of(edit, kFacts));
  EXPECT_THAT(json, HasSubstr("\"prefixes\": [\n        \"2001:db8:0:1::/64\",\n"));
  edit.line.global.ipv6 = edit.line_before.global.ipv6 = false;
  EXPECT_THAT(to_text(plan_of(edit, kFacts)), Not(HasSubstr("prefixes")));
  EXPECT_THAT(json_text(plan_of(edit, kFacts)), Not(HasSubstr("prefixes")));
}

TEST(PlanOfPrefixes, NamesTheChangeOfTheLineAndOfATariff) {
  Edit edit = adding(line("eth1"));
  edit.line.global.ipv6 = true;
  edit.tariffs = test::set_of<TariffConfig>(shaped("a", 4, "10.0.0.1"));
  edit.stored = edit.tariffs;
  edit.added = TariffSet();
  edit.tariffs.tariffs()[0].addPrefix("2001:db8::1/64");
  edit.work = KernelWork::rebuild;
  edit.save_line = true;
  const std::string text = to_text(plan_of(edit, kFacts));
  EXPECT_THAT(text, HasSubstr("\nchange [global] ipv6: nothing to \"true\"\n"));
  EXPECT_THAT(text, HasSubstr("\nchange [a] ip6: nothing to \"2001:db8::/64\"\n"));
}

TEST(PlanOfRenumbering, ShowsTheNumbers) {
  Edit edit = adding(line("eth1"));
  edit.tariffs = test::set_of<TariffConfig>(shaped("a", 7, "10.0.0.1"));
  edit.added = TariffSet();
  edit.work = KernelWork::rebuild;
  const Plan plan = plan_of(edit, kFacts);
  ASSERT_EQ(plan.changed.size(), 1U);
  EXPECT_EQ(plan.changed[0].values.at(0).key, "id");
  EXPECT_EQ(plan.changed[0].values.at(0).after, "7");
  EXPECT_THAT(plan.removed, IsEmpty());
}

}  // namespace
}  // namespace quenby
