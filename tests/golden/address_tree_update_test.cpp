#include <linux/rtnetlink.h>

#include <cerrno>

#include "tests/golden/device_test.h"

// Changing the leaves of the IMQ device, whose classifiers are an address tree.
namespace golden {
namespace {

using quenby::kQdiscPfifo;
using quenby::kQdiscSfq;

const quenby::GlobalSettings kLine = line(kTenMbit, kTenMbit);

// The handle of a filter, and without bucket and node of a table.
constexpr std::uint32_t at(unsigned table, unsigned bucket = 0, unsigned node = 0) {
  return table << 20 | bucket << 12 | node;
}

// Where a kernel puts filters that it numbers itself.
constexpr unsigned kRootTable = 0x800;
constexpr unsigned kFirst = 0x800;
constexpr unsigned kSecond = 0x801;

// Amy has class number 4 and 10.0.1.5; Bob has class number 5, 10.0.17.5 and 10.0.2.6. The kernel
// has numbered every filter itself.
class AddressTreeUpdateTest : public DeviceTest {
 protected:
  AddressTreeUpdateTest() {
    list({at(kRootTable), at(kRootTable, 0, kFirst), at(kRootTable, 0, kSecond)});
    list({at(2), at(2, 1, kFirst), at(2, 2, kFirst), at(4), at(5)});
    list({at(4, 5, kFirst)}, 0x80000004);
    list({at(4, 5, kSecond), at(5, 6, kFirst)}, 0x80000005);
    list({at(19), at(19, 1, kFirst), at(19, 2, kFirst), at(21), at(22)});
    list({at(21, 5, kFirst)}, 0x80008004);
    list({at(21, 5, kSecond), at(22, 6, kFirst)}, 0x80008005);
  }

  void list(const std::vector<std::uint32_t>& handles, std::uint32_t classid = 0) {
    for (const std::uint32_t handle : handles) kernel.has_filter({kImqIndex, handle, classid});
  }

  const quenby::TariffSettings amy = tariff("amy", 4, kTenMbit, {"10.0.1.5"});
  const quenby::TariffSettings bob =
      tariff("bob", 5, kTenMbit, {"10.0.17.5", "10.0.2.6"}, kQdiscSfq);
};

TEST_F(AddressTreeUpdateTest, ADeletedTariffLosesLeafFiltersAndClassInThisOrder) {
  imq(true).update_leaves(kLine, tariffs({bob}), {}, true);
  EXPECT_EQ(kernel.requests(), R"(RTM_GETTFILTER REQUEST|ACK|DUMP
  family 0 ifindex 9
  handle none
  parent 8000:0
  info prio 0 protocol 0x0
RTM_DELQDISC REQUEST|ACK
  family 0 ifindex 9
  handle 8005:0
  parent 8000:5
  info 0
  TCA_KIND "sfq"
RTM_DELTFILTER REQUEST|ACK
  family 0 ifindex 9
  handle table 4 bucket 5 node 2049
  parent 8000:0
  info prio 1 protocol ip
  TCA_KIND "u32"
RTM_DELTFILTER REQUEST|ACK
  family 0 ifindex 9
  handle table 5 bucket 6 node 2048
  parent 8000:0
  info prio 1 protocol ip
  TCA_KIND "u32"
RTM_DELTCLASS REQUEST|ACK
  family 0 ifindex 9
  handle 8000:5
  parent 8000:1
  info 0
)");
}

// The leaf's major is 0x8000 + 20000 + 5.
TEST_F(AddressTreeUpdateTest, TheUploadLosesItsOwnFilters) {
  imq(false).update_leaves(kLine, tariffs({bob}), {}, true);
  EXPECT_EQ(kernel.summaries(), R"(RTM_GETTFILTER DUMP
RTM_DELQDISC ifindex 9 sfq ce25:0 parent 8000:8005
RTM_DELTFILTER ifindex 9 u32 table 21 bucket 5 node 2049 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 9 u32 table 22 bucket 6 node 2048 parent 8000:0 prio 1
RTM_DELTCLASS ifindex 9 8000:8005 parent 8000:8001
)");
}

TEST_F(AddressTreeUpdateTest, SeveralTariffsAreDeletedAfterOneLookAtTheFilters) {
  imq(true).update_leaves(kLine, tariffs({amy, bob}), {}, true);
  EXPECT_EQ(kernel.summaries(), R"(RTM_GETTFILTER DUMP
RTM_DELTFILTER ifindex 9 u32 table 4 bucket 5 node 2048 parent 8000:0 prio 1
RTM_DELTCLASS ifindex 9 8000:4 parent 8000:1
RTM_DELQDISC ifindex 9 sfq 8005:0 parent 8000:5
RTM_DELTFILTER ifindex 9 u32 table 4 bucket 5 node 2049 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 9 u32 table 5 bucket 6 node 2048 parent 8000:0 prio 1
RTM_DELTCLASS ifindex 9 8000:5 parent 8000:1
)");
}

TEST_F(AddressTreeUpdateTest, OtherClassifiersOfTheClassStay) {
  kernel.has_filter({kImqIndex, at(9, 9, kFirst), 0x80000005, "fw"});
  kernel.has_filter({kWanIndex, at(9, 9, kFirst), 0x80000005});
  imq(true).delete_ht_leaf(bob.download, true, bob.addresses);
  EXPECT_EQ(kernel.summaries(), R"(RTM_GETTFILTER DUMP
RTM_DELQDISC ifindex 9 sfq 8005:0 parent 8000:5
RTM_DELTFILTER ifindex 9 u32 table 4 bucket 5 node 2049 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 9 u32 table 5 bucket 6 node 2048 parent 8000:0 prio 1
RTM_DELTCLASS ifindex 9 8000:5 parent 8000:1
)");
}

// Third octets 17 and 1 share table 4, which is linked already; 3 has table 2 + 1 + 3.
TEST_F(AddressTreeUpdateTest, AChangedTariffUsesTheTablesThatAreLinkedAndLinksNewOnes) {
  const auto moved = tariff("bob", 5, kTenMbit, {"10.0.17.9", "10.0.3.7"}, kQdiscPfifo);
  imq(true).update_leaves(kLine, tariffs({bob}), tariffs({moved}), true);
  EXPECT_EQ(kernel.summaries(), R"(RTM_GETTFILTER DUMP
RTM_DELQDISC ifindex 9 sfq 8005:0 parent 8000:5
RTM_DELTFILTER ifindex 9 u32 table 4 bucket 5 node 2049 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 9 u32 table 5 bucket 6 node 2048 parent 8000:0 prio 1
RTM_DELTCLASS ifindex 9 8000:5 parent 8000:1
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:5 parent 8000:1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 4 bucket 9 node 0 parent 8000:0 prio 1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 6 bucket 0 node 0 parent 8000:0 prio 1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 2 bucket 3 node 0 parent 8000:0 prio 1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 6 bucket 7 node 0 parent 8000:0 prio 1
RTM_NEWQDISC CREATE ifindex 9 pfifo 8005:0 parent 8000:5
)");
}

TEST_F(AddressTreeUpdateTest, AnAddressOfATableThatIsLinkedNeedsItsFilterAlone) {
  imq(true).update_leaves(kLine, {}, tariffs({tariff("zed", 6, kTenMbit, {"10.0.33.7"})}), true);
  const std::string requests = kernel.values();
  EXPECT_EQ(requests.substr(requests.find("RTM_NEWTFILTER")),
            R"(RTM_NEWTFILTER CREATE ifindex 9 u32 table 4 bucket 7 node 0 parent 8000:0 prio 1
  CLASSID 8000:6 HASH table 4 bucket 7 node 0 flags TERMINAL hash mask 0 at 0 key a002107/ffffffff at 16 offmask 0
)");
}

// As older kernels number it: the second filter with this handle would change the first one.
TEST_F(AddressTreeUpdateTest, AnAddressWhoseNodeIsTakenIsNumberedByTheKernel) {
  list({at(4, 7, 0)}, 0x80000004);
  imq(true).update_leaves(kLine, {}, tariffs({tariff("zed", 6, kTenMbit, {"10.0.17.7"})}), true);
  const std::string requests = kernel.values();
  EXPECT_EQ(requests.substr(requests.find("RTM_NEWTFILTER")),
            R"(RTM_NEWTFILTER CREATE ifindex 9 u32 parent 8000:0 prio 1
  CLASSID 8000:6 HASH table 4 bucket 7 node 0 flags TERMINAL hash mask 0 at 0 key a001107/ffffffff at 16 offmask 0
)");
}

TEST_F(AddressTreeUpdateTest, ATableThatExistsWithoutALinkIsLinked) {
  for (const int error : {EINVAL, 0, 0}) kernel.refuse(RTM_NEWTFILTER, error);
  imq(true).update_leaves(kLine, {}, tariffs({tariff("zed", 6, kTenMbit, {"10.0.3.7"})}), true);
  EXPECT_EQ(kernel.summaries(), R"(RTM_GETTFILTER DUMP
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:6 parent 8000:1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 6 bucket 0 node 0 parent 8000:0 prio 1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 2 bucket 3 node 0 parent 8000:0 prio 1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 6 bucket 7 node 0 parent 8000:0 prio 1
)");
}

TEST_F(AddressTreeUpdateTest, NothingIsDeletedWhereNothingWasShaped) {
  imq(true).update_leaves(kLine, tariffs({bob}), {}, false);
  EXPECT_EQ(kernel.summaries(), "RTM_GETTFILTER DUMP\n");
}

TEST_F(AddressTreeUpdateTest, ATariffWithoutAddressesOrSpeedHasNothing) {
  const auto silent = tariffs({tariff("a", 4, kTenMbit, {}, kQdiscSfq)});
  const auto unset = tariffs({tariff("a", 4, -2, {"10.0.1.5"}, kQdiscSfq)});
  imq(true).update_leaves(kLine, silent, unset, true);
  imq(false).update_leaves(kLine, silent, silent, true);
  EXPECT_EQ(kernel.summaries(), "RTM_GETTFILTER DUMP\nRTM_GETTFILTER DUMP\n");
}

// A run that was killed after it had made Bob's class and filters is repeated.
TEST_F(AddressTreeUpdateTest, WhatAnInterruptedChangeMadeGoesFirst) {
  imq(true).update_leaves(kLine, {}, tariffs({bob}), true);
  EXPECT_EQ(kernel.summaries(), R"(RTM_GETTFILTER DUMP
RTM_DELQDISC ifindex 9 sfq 8005:0 parent 8000:5
RTM_DELTFILTER ifindex 9 u32 table 4 bucket 5 node 2049 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 9 u32 table 5 bucket 6 node 2048 parent 8000:0 prio 1
RTM_DELTCLASS ifindex 9 8000:5 parent 8000:1
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:5 parent 8000:1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 4 bucket 5 node 0 parent 8000:0 prio 1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 5 bucket 6 node 0 parent 8000:0 prio 1
RTM_NEWQDISC CREATE ifindex 9 sfq 8005:0 parent 8000:5
)");
}

TEST_F(AddressTreeUpdateTest, WhatIsGoneDoesNotStopTheChange) {
  for (const int error : {ENOENT, EINVAL}) {
    kernel.refuse(RTM_DELQDISC, error);
    for (int i = 0; i < 2; ++i) kernel.refuse(RTM_DELTFILTER, error);
    kernel.refuse(RTM_DELTCLASS, ENOENT);
    imq(true).update_leaves(kLine, tariffs({bob, amy}), {}, true);
    EXPECT_EQ(kernel.summaries(), R"(RTM_GETTFILTER DUMP
RTM_DELQDISC ifindex 9 sfq 8005:0 parent 8000:5
RTM_DELTFILTER ifindex 9 u32 table 4 bucket 5 node 2049 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 9 u32 table 5 bucket 6 node 2048 parent 8000:0 prio 1
RTM_DELTCLASS ifindex 9 8000:5 parent 8000:1
RTM_DELTFILTER ifindex 9 u32 table 4 bucket 5 node 2048 parent 8000:0 prio 1
RTM_DELTCLASS ifindex 9 8000:4 parent 8000:1
)") << error;
  }
}

TEST_F(DeviceTest, TheFirstTariffOfADirectionMakesItsBaseTable) {
  // The upload's base table is none of the download's.
  kernel.has_filter({kImqIndex, at(19), 0});
  kernel.has_filter({kImqIndex, at(19, 1, kFirst), 0});
  imq(true).update_leaves(kLine, {}, tariffs({tariff("amy", 4, kTenMbit, {"10.0.1.5"})}), true);
  EXPECT_EQ(kernel.summaries(), R"(RTM_GETTFILTER DUMP
RTM_NEWTFILTER CREATE ifindex 9 u32 table 2 bucket 0 node 0 parent 8000:0 prio 1
RTM_NEWTFILTER CREATE ifindex 9 u32 parent 8000:0 prio 1
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:4 parent 8000:1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 4 bucket 0 node 0 parent 8000:0 prio 1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 2 bucket 1 node 0 parent 8000:0 prio 1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 4 bucket 5 node 0 parent 8000:0 prio 1
)");
}

}  // namespace
}  // namespace golden
