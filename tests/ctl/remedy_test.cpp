#include "ctl/remedy.h"

#include <gtest/gtest.h>

// What is named beside a difference as that which mends it.
namespace quenby {
namespace {

std::string remedy(DriftKind kind, const std::string& place, const std::string& object,
                   const std::string& detail, std::vector<Mending> mendings = {}) {
  return remedy_of({kind, place, object, detail, std::move(mendings), false});
}

TEST(Remedy, WhatARepairMends) {
  constexpr DriftKind kMissing = DriftKind::missing;
  constexpr DriftKind kDifferent = DriftKind::different;
  EXPECT_EQ(remedy(kMissing, "eth1", "qdisc ffff:", "", {MakeQdisc{}}), "quenbyctl repair");
  EXPECT_EQ(remedy(kMissing, "set", "kavo_opt_shaper", ""), "quenbyctl repair");
  EXPECT_EQ(remedy(kMissing, "set", "address 10.0.0.1", ""), "quenbyctl repair");
  EXPECT_EQ(remedy(kDifferent, "set", "address 10.0.0.1", "mark 0x1/0x1, not 0x2/0x1"),
            "quenbyctl repair");
  EXPECT_EQ(remedy(kMissing, "firewall", "chain mangle X", "", {RunCommand{"x"}}),
            "quenbyctl repair");
  EXPECT_EQ(remedy(kDifferent, "/config/tc/tc_tariff.ini", "class numbers", "they do not fit"),
            "quenbyctl repair");
}

TEST(Remedy, ASetOfAnotherTypeIsInTheWay) {
  for (const std::string name : {"kavo_opt_shaper", "kavo_opt_shaper6"}) {
    EXPECT_EQ(remedy(DriftKind::different, "set", name, "type hash:ip,port"),
              "quenby --stop && ipset destroy " + name + " && quenby --load");
  }
}

TEST(Remedy, ATableThatCannotBeListed) {
  EXPECT_EQ(remedy(DriftKind::different, "firewall", "table mangle", "cannot be listed"),
            "see to what \"iptables -t mangle -S\" says, then quenbyctl repair");
  EXPECT_EQ(remedy(DriftKind::different, "firewall", "IPv6 table raw", "cannot be listed"),
            "see to what \"ip6tables -t raw -S\" says, then quenbyctl repair");
}

TEST(Remedy, AnIngressQdiscOfAnotherKind) {
  EXPECT_EQ(remedy(DriftKind::different, "eth1", "qdisc ffff:", "clsact, not ingress"),
            "tc qdisc del dev eth1 clsact && quenbyctl repair");
  EXPECT_EQ(remedy(DriftKind::different, "eth 1", "qdisc ffff:", "clsact, not ingress"),
            "tc qdisc del dev 'eth 1' clsact && quenbyctl repair");
}

TEST(Remedy, AllThatNobodyKnowsToMend) {
  EXPECT_EQ(remedy(DriftKind::different, "eth1", "class 8000:4", "odd"),
            "quenby --stop && quenby --load");
}

}  // namespace
}  // namespace quenby
