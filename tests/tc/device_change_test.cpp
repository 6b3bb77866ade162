#include "tc/device_change.h"

#include <gtest/gtest.h>
#include <sstream>

#include "tc/tree_text.h"
#include "tests/support/tariffs.h"

// What a change of tariffs comes to on one device. All rates in bytes per second.
namespace quenby {
namespace {

using test::set_of;

constexpr std::int64_t kUnset = -2;
constexpr std::int64_t kTenMbit = 1'250'000;

struct PathCase {
  const char* what;
  bool added, removed;
  std::int64_t configured, previous, next;
  bool changes;
};

TEST(PathChange, IsDecidedByTheSpeedsBeforeAndAfter) {
  const PathCase cases[] = {
      {"added, below before, nothing removed", true, false, 10, 20, 5, false},
      {"changed, below before, not below now", true, true, 10, 20, 10, true},
      {"changed, below before and now", true, true, 10, 20, 11, false},
      {"added, as before, below now", true, false, 10, 10, 11, true},
      {"added, as before, not below now", true, false, 10, 10, 10, false},
      {"removed, below before, not below now", false, true, 10, 20, 10, true},
      {"removed, below before and now", false, true, 10, 20, 11, false},
      {"removed, as before", false, true, 10, 10, 11, false},
      {"nothing", false, false, 10, 20, 5, false},
      {"unset, grows", true, false, kUnset, kUnset, 10, true},
  };
  for (const PathCase& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(path_changes(c.added, c.removed, c.configured, c.previous, c.next), c.changes);
  }
}

TariffSettings subscriber(const std::string& name, int id, const std::string& address,
                          const std::string& qdisc) {
  TariffSettings tariff = test::tariff(name, id);
  tariff.download.speed = tariff.upload.speed = kTenMbit;
  tariff.addCIDR(address);
  tariff.setQDisc(qdisc);
  return tariff;
}

const TariffSettings kAmy = subscriber("amy", 4, "10.0.1.4", "sfq");
const TariffSettings kBob = subscriber("bob", 5, "10.0.1.5", "pfifo");
const TariffSettings kZed = subscriber("zed", 6, "10.0.1.6", "fq_codel");

ResolvedLine line(std::int64_t speed) { return {"eth1", speed, std::nullopt}; }

TariffDifference difference(const TariffSet& removed, const TariffSet& added, bool remove = true) {
  return {removed, as_given(added, Direction::upload), remove};
}

std::string text(const DeviceChange& change) {
  std::ostringstream out;
  write_change(out, "dev", change);
  return out.str();
}

std::string upload_change(const TariffSet& removed, const TariffSet& added, bool has_tree = true,
                          bool remove = true) {
  return text(branch_changes(mark_side(Direction::upload), line(kTenMbit), has_tree,
                             difference(removed, added, remove), {}));
}

constexpr const char* kBobGone = "delete dev qdisc 8005:\ndelete dev class 8000:5\n";
constexpr const char* kBobMade =
    "create dev class 8000:5 parent 8000:1 rate 1250000 ceil 1250000 burst 300000 cburst 300000 "
    "quantum 125000\n"
    "create dev qdisc 8005: parent 8000:5 pfifo limit 11000\n";

// Its packets take the default class while it has none.
TEST(BranchChange, AChangedTariffComesBackBeforeTheNextGoes) {
  const std::string amy_gone = "delete dev qdisc 8004:\ndelete dev class 8000:4\n";
  const std::string zed_made =
      "create dev class 8000:6 parent 8000:1 rate 1250000 ceil 1250000 burst 300000 "
      "cburst 300000 quantum 125000\n"
      "create dev qdisc 8006: parent 8000:6 fq_codel limit 600 quantum 300\n";
  EXPECT_EQ(upload_change(set_of(kAmy, kBob), set_of(kBob, kZed)),
            amy_gone + kBobGone + kBobMade + zed_made);
}

TEST(BranchChange, ATariffBelongsToItsNumber) {
  TariffSettings heir = subscriber("zoe", 5, "10.0.1.9", "pfifo");
  EXPECT_EQ(upload_change(set_of(kBob), set_of(heir)), std::string(kBobGone) + kBobMade);
}

TEST(BranchChange, NothingGoesUnlessWanted) {
  EXPECT_EQ(upload_change(set_of(kBob), set_of(kBob), true, false), kBobMade);
  EXPECT_EQ(upload_change(set_of(kBob), TariffSet(), true, false), "");
}

TEST(BranchChange, OnADeviceWithoutATreeBranchesOnlyGo) {
  EXPECT_EQ(upload_change(set_of(kBob), set_of(kBob), false), kBobGone);
  const TariffSet bob = set_of(kBob);
  EXPECT_EQ(
      text(branch_changes(mark_side(Direction::upload), line(0), true, difference(bob, bob), {})),
      kBobGone);
  EXPECT_EQ(text(branch_changes(imq_side(Direction::upload), line(kTenMbit), false,
                                difference(bob, bob), {})),
            "");
}

TEST(BranchChange, ABlockedDirectionOfTheImqDeviceOnlyLosesBranches) {
  const TariffSet bob = set_of(kBob);
  EXPECT_EQ(
      text(branch_changes(imq_side(Direction::download), line(0), true, difference(bob, bob), {})),
      kBobGone);
}

TEST(BranchChange, TheFirstLevelOfTheAddressTreeIsMadeWhereItIsMissing) {
  const TariffSet none;
  EXPECT_EQ(text(branch_changes(imq_side(Direction::download), line(kTenMbit), true,
                                difference(none, set_of(kBob)), {})),
            "create dev table 2: buckets 16\n"
            "create dev u32 0:0:1 at 16 link 2: by ff00\n"
            "create dev class 8000:5 parent 8000:1 rate 1250000 ceil 1250000 burst 300000 cburst "
            "300000 quantum 125000\n"
            "create dev table 4: buckets 256\n"
            "create dev u32 2:1:0 at 16 link 4: by ff\n"
            "create dev u32 4:5:0 at 16 match 10.0.1.5 class 8000:5\n"
            "create dev qdisc 8005: parent 8000:5 pfifo limit 11000\n");
}

DeviceChange change_of(const LineChange& line, bool has_tree = true) {
  const TariffSet none;
  return device_change(mark_side(Direction::download), line, has_tree,
                       difference(none, set_of(kBob)), {});
}

// 240 ms of 10 Mbit/s are 300,000 bytes.
TEST(DeviceChange, ReplacesTheRootClassOnceWithTheLargestBurst) {
  const ResolvedLine next = line(kTenMbit);
  ASSERT_TRUE(change_of({next, kTenMbit, kTenMbit}).root);
  EXPECT_EQ(change_of({next, kTenMbit, kTenMbit, 375'000}).root->burst, 375'000U);
  EXPECT_EQ(change_of({next, kTenMbit, kTenMbit, 1500}).root->burst, 300'000U);
}

TEST(DeviceChange, RemakesThePathWhereTheLineGrows) {
  const ResolvedLine next = line(kTenMbit);
  EXPECT_FALSE(change_of({next, kTenMbit, kTenMbit}).path);
  const auto path = change_of({next, 1'000'000, 1'000'000}).path;
  ASSERT_TRUE(path);
  EXPECT_TRUE(path->classifier);
  EXPECT_EQ(path->feeder, "eth1");
  EXPECT_NE(path->feed.find(" action connmark "), std::string::npos);
}

TEST(DeviceChange, LeavesTheLineOfAMissingDeviceAlone) {
  const ResolvedLine next = line(kTenMbit);
  const DeviceChange change = change_of({next, 1'000'000, 1'000'000}, false);
  EXPECT_FALSE(change.root);
  EXPECT_FALSE(change.path);
}

}  // namespace
}  // namespace quenby
