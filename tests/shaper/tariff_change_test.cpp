#include "shaper/tariff_change.h"

#include <gtest/gtest.h>

#include "tests/support/tariffs.h"

// Which changes can be made in place and what they come to. All rates in bytes per second.
namespace quenby {
namespace {

using test::names;
using test::set_of;

constexpr std::int64_t kLink = 1'250'000;
constexpr std::int64_t kUnset = -2;

GlobalSet line(std::int64_t download, std::int64_t upload) {
  return test::line("eth1", download, upload);
}

TariffSettings subscriber(const std::string& name, int id, std::int64_t speed,
                          const std::string& address) {
  TariffSettings tariff = test::tariff(name, id);
  tariff.download.speed = speed;
  tariff.upload.speed = speed;
  tariff.addCIDR(address);
  return tariff;
}

const TariffSettings kAmy = subscriber("amy", 4, 100'000, "10.0.0.1");
const TariffSettings kBob = subscriber("bob", 5, 200'000, "10.0.0.2");
const TariffSettings kZed = subscriber("zed", 6, 300'000, "10.0.0.3");

TariffChange add_zed(const GlobalSet& g) {
  return plan_change(g, set_of(kAmy, kBob), TariffSet(), set_of(kZed), kLink);
}

TEST(TariffChange, NewListIsTheOldOneWithoutTheRemovedAndWithTheAdded) {
  TariffSettings faster = kBob;
  faster.download.speed = 250'000;
  const TariffChange change = plan_change(line(1'000'000, 1'000'000), set_of(kAmy, kBob),
                                          set_of(kBob), set_of(faster, kZed), kLink);
  EXPECT_EQ(names(change.after.tariffs), (std::vector<std::string>{"amy", "bob", "zed"}));
  EXPECT_EQ(change.after.tariffs.tariffs()[1].download.speed, 250'000);
  EXPECT_FALSE(change.rebuild());
}

TEST(TariffChange, CreatedTariffsCarryTheRatesOfTheNewSet) {
  TariffSettings empty_speed = kZed;
  empty_speed.download.speed = -1;
  TariffSettings too_fast = subscriber("fast", 7, 5'000'000, "10.0.0.4");
  too_fast.download.aggregation = too_fast.upload.aggregation = 100.0;
  const TariffChange change = plan_change(line(1'000'000, 900'000), set_of(kAmy), TariffSet(),
                                          set_of(too_fast, empty_speed), kLink);
  const std::vector<ResolvedTariff> download = change.created(Direction::download);
  ASSERT_EQ(download.size(), 2U);
  EXPECT_EQ(download[0].number, 7U);
  EXPECT_EQ(download[0].rates.ceiling, 1'000'000);
  EXPECT_EQ(change.created(Direction::upload).at(0).rates.ceiling, 900'000);
  EXPECT_EQ(download[1].number, 6U);
  EXPECT_EQ(download[1].rates.ceiling, 1'000'000);
  EXPECT_EQ(download[1].rates.guarantee, 0);
  // The list itself stays as configured.
  EXPECT_EQ(change.after.tariffs.tariffs()[2].download.speed, -1);
}

TEST(TariffChange, RecordsAreFoundByNumberWhateverTheOrderOfNames) {
  const TariffSettings first_name = subscriber("aaa", 90, 10'000, "10.0.0.9");
  const TariffChange change = plan_change(line(1'000'000, 1'000'000), set_of(kAmy, kBob, kZed),
                                          TariffSet(), set_of(first_name), kLink);
  const std::vector<ResolvedTariff> created = change.created(Direction::upload);
  ASSERT_EQ(created.size(), 1U);
  EXPECT_EQ(created[0].number, 90U);
  EXPECT_EQ(created[0].addresses, first_name.addresses);
}

TEST(TariffChange, LargestBurstIsThatOfTheWholeNewSet) {
  TariffSettings bursty = kAmy;
  bursty.download.burst_size = 400'000;
  const TariffChange change = plan_change(line(1'000'000, 1'000'000), set_of(bursty, kBob),
                                          TariffSet(), set_of(kZed), kLink);
  EXPECT_EQ(largest_burst(change.after.download.tariffs), 400'000);
  EXPECT_EQ(largest_burst(change.after.upload.tariffs), 0);
}

TEST(TariffChange, UnsetDirectionGrowsWithTheTariffs) {
  const TariffChange change = add_zed(line(kUnset, kUnset));
  for (const Direction way : kDirections) {
    EXPECT_EQ(change.before.direction(way).line.speed, 300'000);
    EXPECT_EQ(change.after.direction(way).line.speed, 600'000);
  }
  EXPECT_FALSE(change.rebuild());
}

// Entries as "address byte 4: class number".
std::vector<std::string> text(const std::vector<AddressSetEntry>& entries) {
  std::vector<std::string> lines;
  for (const AddressSetEntry& entry : entries) {
    EXPECT_EQ(entry.mask, 0x80003fffU);
    lines.push_back(std::to_string(entry.address >> 24) + ": " +
                    std::to_string(entry.mark & 0x3fff));
  }
  return lines;
}

using Lines = std::vector<std::string>;

// Before and after "bob" in the order of names, with his address or another one.
const TariffSettings kAnn = subscriber("ann", 7, 10'000, "10.0.0.2");
const TariffSettings kTom = subscriber("tom", 8, 10'000, "10.0.0.2");

TariffChange change_of(const TariffSet& current, const TariffSet& removed, const TariffSet& added) {
  return plan_change(line(1'000'000, 1'000'000), current, removed, added, kLink);
}

TEST(TariffChange, SharedAddressGoesBackToTheLastOwnerThatStays) {
  const TariffChange change = change_of(set_of(kAnn, kBob, kTom), set_of(kTom), TariffSet());
  EXPECT_FALSE(change.rebuild());
  EXPECT_EQ(text(change.kept), Lines{"2: 5"});
  EXPECT_TRUE(change.settled.empty());
}

TEST(TariffChange, SharedAddressStaysWithAnOwnerThatComesLater) {
  const TariffChange change = change_of(set_of(kBob, kTom), TariffSet(), set_of(kAnn));
  EXPECT_FALSE(change.rebuild());
  EXPECT_TRUE(change.kept.empty());
  EXPECT_EQ(text(change.settled), Lines{"2: 8"});
}

TEST(TariffChange, SharedAddressOfTheLastOwnerNeedsNoCorrection) {
  const TariffChange change = change_of(set_of(kAnn, kBob), TariffSet(), set_of(kTom));
  EXPECT_FALSE(change.rebuild());
  EXPECT_TRUE(change.shared);
  EXPECT_TRUE(change.kept.empty());
  EXPECT_TRUE(change.settled.empty());
}

TEST(TariffChange, ChangedTariffTakesItsSharedAddressAgain) {
  TariffSettings faster = kTom;
  faster.download.speed = 20'000;
  const TariffChange last = change_of(set_of(kBob, kTom), set_of(kTom), set_of(faster));
  EXPECT_EQ(text(last.kept), Lines{"2: 5"});
  EXPECT_TRUE(last.settled.empty());

  faster = kAnn;
  faster.download.speed = 20'000;
  const TariffChange first = change_of(set_of(kAnn, kBob), set_of(kAnn), set_of(faster));
  EXPECT_EQ(text(first.kept), Lines{"2: 5"});
  EXPECT_EQ(text(first.settled), Lines{"2: 5"});
}

TEST(TariffChange, AddressOfOneTariffNeedsNoEntryOfAnother) {
  const TariffChange change = change_of(set_of(kAmy, kBob), set_of(kBob), set_of(kZed));
  EXPECT_FALSE(change.shared);
  EXPECT_TRUE(change.kept.empty());
  EXPECT_TRUE(change.settled.empty());
}

TEST(TariffChange, OfNothingChangesNothing) {
  const TariffChange change =
      plan_change(line(1'000'000, 1'000'000), set_of(kAmy, kBob), TariffSet(), TariffSet(), kLink);
  EXPECT_FALSE(change.rebuild());
  EXPECT_TRUE(change.created(Direction::upload).empty());
  EXPECT_EQ(names(change.after.tariffs), (std::vector<std::string>{"amy", "bob"}));
  EXPECT_EQ(change.before.upload.line, change.after.upload.line);
}

TEST(TariffChange, RemovingEveryTariffLeavesAnEmptyList) {
  const TariffChange change =
      plan_change(line(1'000'000, kUnset), set_of(kAmy), set_of(kAmy), TariffSet(), kLink);
  EXPECT_TRUE(change.after.tariffs.empty());
  EXPECT_EQ(change.before.upload.line.speed, 100'000);
  EXPECT_EQ(change.after.upload.line.speed, kUnset);
}

TariffSettings with_speeds(TariffSettings t, std::int64_t download, std::int64_t upload) {
  t.download.speed = download;
  t.upload.speed = upload;
  return t;
}

// Why a change is not made in place.
TEST(TariffChange, RebuildsWhereItWouldNotBeTheSame) {
  const TariffSet none;
  const TariffSettings idle = with_speeds(kAmy, kUnset, kUnset);
  const TariffSettings download_only = with_speeds(kAmy, 100'000, kUnset);
  const TariffSettings no_guarantee = with_speeds(kAmy, 100'000, -1);
  const TariffSettings other = with_speeds(kZed, 300'000, -1);
  GlobalSet imq = line(1'000'000, 1'000'000);
  GlobalSet blocked_line = line(1'000'000, 0);
  imq.global.wan.clear();
  GlobalSet imq_blocked = blocked_line;
  imq_blocked.global.wan.clear();
  const GlobalSet fast = line(1'000'000, 1'000'000);
  const GlobalSet unset = line(kUnset, kUnset);
  const GlobalSet one_way = line(1'000'000, kUnset);
  const TariffSet both = set_of(kAmy, kBob);
  const struct {
    const char* what;
    GlobalSet line;
    TariffSet current, removed, added;
    bool rebuild;
  } rows[] = {
      {"100,000 + 200,000 + 300,000 of 600,000", line(600'000, 600'000), both, none, set_of(kZed),
       false},
      {"less download", line(599'999, 600'000), both, none, set_of(kZed), true},
      {"less upload", line(600'000, 599'999), both, none, set_of(kZed), true},
      {"too little before", line(250'000, 1'000'000), both, set_of(kBob), none, true},
      {"unset before and after", unset, set_of(idle), none,
       set_of(with_speeds(kBob, kUnset, kUnset)), true},
      {"unset before", unset, set_of(idle), none, set_of(kBob), true},
      {"the first tariff", fast, none, none, set_of(kZed), true},
      {"a direction becomes shaped", one_way, set_of(download_only), none, set_of(kBob), true},
      {"a direction is shaped no more", one_way, set_of(download_only, kBob), set_of(kBob), none,
       true},
      {"a blocked direction", blocked_line, set_of(no_guarantee), none, set_of(other), false},
      {"one of the IMQ device", imq_blocked, set_of(no_guarantee), none, set_of(other), true},
      {"an added tariff shares an address", imq, both, none, set_of(kTom), true},
      {"a removed tariff shares an address", imq, set_of(kBob, kTom), set_of(kTom), none, true},
      {"two that stay share one", imq, set_of(kAmy, kBob, kTom), set_of(kAmy), none, false},
      {"an address moves to another tariff", fast, both, set_of(kBob), set_of(kTom), false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    EXPECT_EQ(plan_change(row.line, row.current, row.removed, row.added, kLink).rebuild(),
              row.rebuild);
  }
  EXPECT_EQ(add_zed(line(599'999, 600'000)).reason, ChangeReason::oversubscribed);
}

}  // namespace
}  // namespace quenby
