#include "tc/device_tree.h"

#include <gtest/gtest.h>
#include <string>

#include "model/rate_resolution.h"
#include "tests/support/tariffs.h"

// Which objects each direction of each device gets. Their values are the business of other tests.
namespace quenby {
namespace {

constexpr std::int64_t kLink = 125'000'000;
constexpr std::int64_t kNone = kNeverSet;
// No tariff at all, not one without a speed.
constexpr std::int64_t kNobody = -3;
constexpr std::int64_t kTenMbit = 1'250'000;

// A line, a default tariff and Bob with class number 5, all with one speed for both directions.
struct Given {
  std::int64_t line;
  std::int64_t def;
  std::int64_t bob;
};

ResolvedSettings settings_of(const Given& given) {
  GlobalSet set;
  set.has_global = true;
  set.global.wan = "eth1";
  set.has_default = given.def != kNone;
  TariffSettings bob = test::tariff("bob", 5);
  bob.addCIDR("10.0.0.5");
  for (const Direction way : kDirections) {
    set.global.direction(way).speed = given.line;
    set.defaults.direction(way).speed = set.defaults.direction(way).ceiling = given.def;
    bob.direction(way).speed = given.bob;
  }
  return resolve(set, given.bob == kNobody ? TariffSet() : test::set_of(bob), kLink);
}

void add(std::string& text, const std::string& word) { text += (text.empty() ? "" : " ") + word; }

void add_qdisc(std::string& text, const std::optional<Qdisc>& qdisc) {
  if (!qdisc) return;
  add(text, kind_name(qdisc->kind));
  if (qdisc->default_class != 0) add(text, "default");
}

// The objects of a tree by their kinds and the minors of their classes. "/q" is a class's leaf,
// "/a" an address that leads to it.
std::string objects(const Side& side, const Given& given) {
  const DeviceTree tree = device_tree(side, settings_of(given));
  std::string text;
  add_qdisc(text, tree.ingress);
  add_qdisc(text, tree.root);
  if (tree.path.classifier) add(text, "marks");
  if (!tree.path.feed.empty()) add(text, "fed");
  if (tree.base) add(text, "tables");
  for (const auto* const branches : {&tree.line, &tree.tariffs}) {
    for (const ClassBranch& branch : *branches) {
      add(text, hex(branch.htb.handle & 0xffff));
      if (branch.leaf) text += "/q";
      if (!branch.matches.empty()) text += "/a";
    }
  }
  return text;
}

struct Row {
  Given given;
  const char* upload;
  const char* download;
};

void expect_rows(Side (*side)(Direction), const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    const std::string what = std::to_string(row.given.line) + " " + std::to_string(row.given.def) +
                             " " + std::to_string(row.given.bob);
    EXPECT_EQ(objects(side(Direction::upload), row.given), row.upload) << what;
    EXPECT_EQ(objects(side(Direction::download), row.given), row.download) << what;
  }
}

TEST(DeviceTree, OfDevicesThatClassifyByMark) {
  expect_rows(
      mark_side,
      {
          {{kTenMbit, kNone, kTenMbit},
           "ingress htb default marks 1 2/q 5",
           "htb default marks fed 1 2/q 5"},
          {{kTenMbit, 1000, kTenMbit},
           "ingress htb default marks 1 2/q 3/q 5",
           "htb default marks fed 1 2/q 3/q 5"},
          {{kTenMbit, kNone, kNone},
           "ingress htb default marks 1 2/q",
           "htb default marks fed 1 2/q"},
          // Without tariffs and default tariff no packet has a mark.
          {{kTenMbit, kNone, kNobody}, "ingress htb default 1 2/q", "htb default fed 1 2/q"},
          {{kTenMbit, 1000, kNobody},
           "ingress htb default marks 1 2/q 3/q",
           "htb default marks fed 1 2/q 3/q"},
          // A line without a speed is as fast as its tariffs.
          {{kNone, kNone, kTenMbit}, "ingress htb marks 1 5", "htb marks fed 1 5"},
          {{kNone, 1000, kNone}, "ingress htb marks 1 3/q", "htb marks fed 1 3/q"},
          {{kNone, kNone, kNone}, "ingress", ""},
          {{kNone, 0, kNone}, "ingress", ""},
          {{0, kNone, kTenMbit}, "ingress fq_codel", ""},
          {{0, 1000, kNone}, "ingress fq_codel", ""},
      });
}

TEST(DeviceTree, OfTheDeviceThatClassifiesByAddress) {
  expect_rows(
      imq_side,
      {
          {{kTenMbit, kNone, kTenMbit}, "htb tables 8001 8005/a", "tables 1 5/a"},
          {{kTenMbit, 1000, kTenMbit}, "htb default tables 8001 8005/a", "tables 1 2/q 5/a"},
          {{kTenMbit, kNone, kNone}, "htb tables 8001", "tables 1"},
          {{kTenMbit, 1000, kNobody}, "htb default tables 8001", "tables 1 2/q"},
          {{kNone, kNone, kTenMbit}, "htb tables 8001 8005/a", "tables 1 5/a"},
          {{kNone, kNone, kNone}, "htb", ""},
          {{0, kNone, kTenMbit}, "htb tables 8001 8005/a", "tables 1 5/a"},
      });
}

TEST(DeviceTree, TheDefaultClassHasTheSpeedAsConfiguredAndTheRootClassTheResolvedOne) {
  ResolvedSettings settings = settings_of({kTenMbit, kNone, kTenMbit});
  settings.upload.line.speed = 2 * kTenMbit;
  const DeviceTree tree = device_tree(mark_side(Direction::upload), settings);
  ASSERT_EQ(tree.line.size(), 2U);
  EXPECT_EQ(tree.line[0].htb.ceil, 2'500'000U);
  EXPECT_EQ(tree.line[0].htb.rate, 2'500'000U);
  EXPECT_EQ(tree.line[1].htb.ceil, 1'250'000U);
  EXPECT_EQ(tree.line[1].htb.rate, 8U);
}

TEST(DeviceTree, ALineWithoutASectionHasNoDefaultClass) {
  ResolvedSettings settings = settings_of({kTenMbit, kNone, kTenMbit});
  settings.configured.has_global = false;
  const DeviceTree tree = device_tree(mark_side(Direction::upload), settings);
  EXPECT_EQ(tree.line.size(), 1U);
  ASSERT_TRUE(tree.root);
  EXPECT_EQ(tree.root->default_class, 0U);
}

}  // namespace
}  // namespace quenby
