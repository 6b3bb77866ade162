#include <arpa/inet.h>

#include <gtest/gtest.h>

#include "shaper/state_drift.h"
#include "tests/support/drift.h"

// Which entries the address set lacks or has too many.
namespace quenby {
namespace {

const AddressSetEntry kAmy = address_set_entry(inet_addr("10.0.0.4"), 4);
const AddressSetEntry kBob = address_set_entry(inet_addr("10.0.0.5"), 5);

std::string text(const SetDrift& drift) { return test::lines_of(drift.found); }

StandingSet holding(const std::vector<AddressSetEntry>& entries) { return {"hash:ip", entries}; }

TEST(SetDrift, NoneWhereTheEntriesStandInAnyOrder) {
  EXPECT_EQ(text(set_drift({kAmy, kBob}, true, holding({kBob, kAmy}))), "");
  EXPECT_EQ(text(set_drift({}, true, holding({}))), "");
  EXPECT_EQ(text(set_drift({}, false, std::nullopt)), "");
}

TEST(SetDrift, OfSeveralEntriesForAnAddressTheLastCounts) {
  const AddressSetEntry other = address_set_entry(kAmy.address, 9);
  EXPECT_EQ(text(set_drift({other, kAmy}, true, holding({kAmy}))), "");
  const SetDrift drift = set_drift({kAmy, other}, true, holding({kAmy}));
  EXPECT_EQ(text(drift),
            "different: set address 10.0.0.4: mark 0x80000004/0x80003fff, not "
            "0x80000009/0x80003fff\n");
  EXPECT_TRUE(test::are_mended_otherwise(drift.found));
  EXPECT_EQ(drift.put, std::vector<AddressSetEntry>{other});
}

TEST(SetDrift, MissingAndUnwantedEntries) {
  const SetDrift drift = set_drift({kAmy}, true, holding({kBob}));
  EXPECT_EQ(text(drift), "unwanted: set address 10.0.0.5\nmissing: set address 10.0.0.4\n");
  EXPECT_TRUE(test::are_mended_otherwise(drift.found));
  EXPECT_EQ(drift.put, std::vector<AddressSetEntry>{kAmy});
  EXPECT_EQ(drift.drop, std::vector<std::uint32_t>{kBob.address});
}

TEST(SetDrift, AMissingSetStandsForItsEntries) {
  const SetDrift drift = set_drift({kAmy, kBob}, true, std::nullopt);
  EXPECT_EQ(text(drift), "missing: set kavo_opt_shaper\n");
  EXPECT_TRUE(test::are_mended_otherwise(drift.found));
  EXPECT_TRUE(drift.make);
  EXPECT_EQ(drift.put.size(), 2U);
}

TEST(SetDrift, ASetOfAnotherTypeIsLeftAlone) {
  const SetDrift drift = set_drift({kAmy}, true, StandingSet{"hash:net", {}});
  EXPECT_EQ(text(drift), "different: set kavo_opt_shaper: type hash:net\n");
  EXPECT_EQ(std::get<OtherSetType>(drift.found[0].cure).name, "kavo_opt_shaper");
  EXPECT_TRUE(drift.put.empty());
}

TEST(SetDrift, WhatIsLeftOfAnEarlierLineGoes) {
  const SetDrift drift = set_drift({}, false, holding({kAmy}));
  EXPECT_EQ(drift.drop, std::vector<std::uint32_t>{kAmy.address});
}

}  // namespace
}  // namespace quenby
