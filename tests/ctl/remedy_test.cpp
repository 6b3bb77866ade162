#include "ctl/remedy.h"

#include <arpa/inet.h>

#include <gtest/gtest.h>

#include "ctl/kernel_drift.h"
#include "shaper/firewall_state.h"
#include "tc/device_drift.h"
#include "tc/qdisc.h"

// What is named beside a difference as that which mends it. The differences are found as a repair
// finds them.
namespace quenby {
namespace {

const AddressSetEntry kAmy = address_set_entry(inet_addr("10.0.0.4"), 4);
const AddressSetEntry kBob = address_set_entry(inet_addr("10.0.0.5"), 5);

// Of each difference, of which there is one at least.
std::vector<std::string> remedies(const std::vector<Drift>& found) {
  EXPECT_FALSE(found.empty());
  std::vector<std::string> texts;
  for (const Drift& one : found) texts.push_back(remedy_of(one));
  return texts;
}

using Texts = std::vector<std::string>;

// A device that should have an ingress qdisc and has this one there; none with an empty kind.
std::vector<Drift> ingress_drift(const std::string& device, const std::string& kind) {
  DeviceTree tree;
  tree.ingress = ingress_qdisc();
  StandingDevice standing;
  standing.ifindex = 7;
  if (!kind.empty()) standing.qdiscs = {{kind, tree.ingress->handle, tree.ingress->parent, 0, {}}};
  return device_drift({{device, nullptr, nullptr, 7}, "", {&tree}}, standing);
}

std::vector<Drift> table_drift(const std::string& table, Family family) {
  StandingFirewall standing;
  standing.unknown = {table};
  return firewall_drift({}, standing, family);
}

TEST(Remedy, WhatARepairMendsInADevice) {
  EXPECT_EQ(remedies(ingress_drift("eth1", "")), Texts{"quenbyctl repair"});
}

TEST(Remedy, WhatARepairMendsInASet) {
  EXPECT_EQ(remedies(set_drift({kAmy}, true, std::nullopt).found), Texts{"quenbyctl repair"});
  const AddressSetEntry other = address_set_entry(kAmy.address, 9);
  const StandingSet standing{"hash:ip", {other, kBob}};
  const AddressSetEntry zed = address_set_entry(inet_addr("10.0.0.6"), 6);
  // Another mark, one too many, a missing one.
  EXPECT_EQ(remedies(set_drift({kAmy, zed}, true, standing).found), Texts(3, "quenbyctl repair"));
}

TEST(Remedy, WhatARepairMendsInTheFirewall) {
  WantedFirewall wanted;
  wanted.rules[{"mangle", "KAVO_QOS_FW_OUT_HOOK"}] = {{"-j", "RETURN"}};
  EXPECT_EQ(remedies(firewall_drift(wanted, {})), Texts{"quenbyctl repair"});
}

TEST(Remedy, ClassNumbersThatDoNotFit) {
  Asked asked;
  asked.edit.save = TariffSave::whole_first;
  EXPECT_EQ(remedies(all_drift(asked, {})), Texts{"quenbyctl repair"});
}

TEST(Remedy, ASetOfAnotherTypeIsInTheWay) {
  EXPECT_EQ(remedies(set_drift({}, true, StandingSet{"hash:ip,port", {}}).found),
            Texts{"quenby --stop && ipset destroy kavo_opt_shaper && quenby --load"});
  EXPECT_EQ(remedies(prefix_set_drift({}, true, StandingPrefixSet{"hash:ip,port", {}}).found),
            Texts{"quenby --stop && ipset destroy kavo_opt_shaper6 && quenby --load"});
}

TEST(Remedy, ATableThatCannotBeListed) {
  EXPECT_EQ(remedies(table_drift("mangle", Family::ipv4)),
            Texts{"see to what \"iptables -t mangle -S\" says, then quenbyctl repair"});
  EXPECT_EQ(remedies(table_drift("raw", Family::ipv6)),
            Texts{"see to what \"ip6tables -t raw -S\" says, then quenbyctl repair"});
}

TEST(Remedy, AnIngressQdiscOfAnotherKind) {
  EXPECT_EQ(remedies(ingress_drift("eth1", "clsact")),
            Texts{"tc qdisc del dev eth1 clsact && quenbyctl repair"});
  EXPECT_EQ(remedies(ingress_drift("eth 1", "clsact")),
            Texts{"tc qdisc del dev 'eth 1' clsact && quenbyctl repair"});
}

TEST(Remedy, AllThatNobodyKnowsToMend) {
  EXPECT_EQ(remedy_of({DriftKind::different, "eth1", "class 8000:4", "odd", Mendings{}, false}),
            "quenby --stop && quenby --load");
}

// The words of a difference are for people.
TEST(Remedy, DoesNotDependOnWords) {
  for (Drift drift :
       {set_drift({}, true, StandingSet{"hash:ip,port", {}}).found.front(),
        table_drift("raw", Family::ipv6).front(), ingress_drift("eth1", "clsact").front()}) {
    const std::string remedy = remedy_of(drift);
    drift.object = "other words";
    drift.detail = "and more";
    EXPECT_EQ(remedy_of(drift), remedy);
  }
}

}  // namespace
}  // namespace quenby
