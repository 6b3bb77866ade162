#include <linux/rtnetlink.h>

#include <cerrno>

#include "tests/golden/device_test.h"

// The classifiers by mark and of discovery, deleting classifiers, and the leaves of devices that
// classify by mark.
namespace golden {
namespace {

constexpr const char* kFwFilter = R"(RTM_NEWTFILTER REQUEST|ACK|CREATE
  family 0 ifindex 3
  handle none
  parent 8000:0
  info prio 1 protocol ip
  TCA_KIND "fw"
  TCA_OPTIONS
    TCA_FW_MASK 0x80003fff
)";

// Load the mark (offset -4096 + 20); without bit 31 return 0; return the mark's own bits.
constexpr const char* kProgram = R"(RTM_NEWTFILTER REQUEST|ACK|CREATE
  family 0 ifindex 3
  handle none
  parent 8000:0
  info prio 1 protocol ip
  TCA_KIND "bpf"
  TCA_OPTIONS
    TCA_BPF_OPS_LEN 5
    TCA_BPF_OPS
      code 32 jt 0 jf 0 k 0xfffff014
      code 69 jt 0 jf 2 k 0x80000000
      code 84 jt 0 jf 0 k 0x80003fff
      code 22 jt 0 jf 0 k 0x0
      code 6 jt 0 jf 0 k 0x0
)";

TEST_F(DeviceTest, AnFwFilterWithAMask) {
  eth().add_fw_filter(1);
  EXPECT_EQ(kernel.requests(), kFwFilter);
}

TEST_F(DeviceTest, AProgramStandsInForARefusedFwFilter) {
  for (const int error : {EINVAL, ENOENT}) {
    kernel.refuse(RTM_NEWTFILTER, error);
    eth().add_fw_filter(1);
    EXPECT_EQ(kernel.requests(), std::string(kFwFilter) + kProgram) << error;
  }
}

TEST_F(DeviceTest, TheProgramKeepsDeviceAndPriority) {
  kernel.refuse(RTM_NEWTFILTER, EINVAL);
  ifb().add_fw_filter(4);
  EXPECT_EQ(kernel.summaries(), R"(RTM_NEWTFILTER CREATE ifindex 7 fw parent 8000:0 prio 4
RTM_NEWTFILTER CREATE ifindex 7 bpf parent 8000:0 prio 4
)");
}

TEST_F(DeviceTest, DeletesClassifiersOfAnyKind) {
  eth().del_filter("eth1", 0x8000, 1, nullptr);
  EXPECT_EQ(kernel.requests(), R"(RTM_DELTFILTER REQUEST|ACK
  family 0 ifindex 3
  handle none
  parent 8000:0
  info prio 1 protocol ip
)");
}

TEST_F(DeviceTest, DeletesClassifiersOfOneKindOnAnotherDevice) {
  ifb().del_filter("eth1", 0xffff, 2, "fw");
  EXPECT_EQ(kernel.summaries(), "RTM_DELTFILTER ifindex 3 fw parent ffff:0 prio 2\n");
}

TEST_F(DeviceTest, DeletingAClassifierThatIsGoneSucceeds) {
  for (const int error : {ENOENT, EINVAL}) {
    kernel.refuse(RTM_DELTFILTER, error);
    eth().del_filter("eth1", 0x8000, 1, nullptr);
    EXPECT_EQ(kernel.summaries(), "RTM_DELTFILTER ifindex 3 parent 8000:0 prio 1\n");
  }
}

constexpr const char* kFiltersRemoved = R"(RTM_DELTFILTER ifindex 3 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 3 fw parent 8000:0 prio 2
)";

TEST_F(DeviceTest, TheWanFilterIsRemadeForEitherFlag) {
  const std::string remade =
      std::string(kFiltersRemoved) + "RTM_NEWTFILTER CREATE ifindex 3 fw parent 8000:0 prio 1\n";
  const quenby::GlobalSettings g = line(0, kTenMbit);
  eth().update_filter(g, kTenMbit, true, false);
  EXPECT_EQ(kernel.summaries(), remade);
  eth().update_filter(g, kTenMbit, false, true);
  EXPECT_EQ(kernel.summaries(), remade);
  eth().update_filter(g, kTenMbit, false, false);
  EXPECT_EQ(kernel.summaries(), kFiltersRemoved);
}

TEST_F(DeviceTest, ABlockedUploadHasNoFilter) {
  for (const std::int64_t speed : {-2, 0}) {
    eth().update_filter(line(kTenMbit, speed), speed, true, true);
    EXPECT_EQ(kernel.summaries(), kFiltersRemoved);
  }
}

TEST_F(DeviceTest, ABlockedDownloadIsNotRedirected) {
  for (const std::int64_t speed : {-2, 0}) {
    ifb().update_filter(line(speed, kTenMbit), speed, true, true);
    EXPECT_EQ(kernel.summaries(), R"(RTM_DELTFILTER ifindex 7 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 3 parent ffff:0 prio 1
)");
  }
}

TEST_F(DeviceTest, LeavesOfTariffsWithAddressesAndSpeed) {
  const auto set = tariffs({tariff("a", 4, kTenMbit, {"10.0.1.5", "10.0.1.6"}, quenby::kQdiscSfq),
                            tariff("b", 5, kTenMbit, {}, quenby::kQdiscSfq),
                            tariff("c", 6, -2, {"10.0.1.7"}, quenby::kQdiscSfq),
                            tariff("d", 7, 0, {"10.0.1.8"}, quenby::kQdiscNone)});
  eth().create_leaves(line(kTenMbit, kTenMbit), set);
  EXPECT_EQ(kernel.summaries(), R"(RTM_NEWTCLASS CREATE ifindex 3 htb 8000:4 parent 8000:1
RTM_NEWQDISC CREATE ifindex 3 sfq 8004:0 parent 8000:4
RTM_NEWTCLASS CREATE ifindex 3 htb 8000:7 parent 8000:1
)");
  ifb().create_leaves(line(kTenMbit, kTenMbit), set);
  EXPECT_EQ(kernel.summaries(), R"(RTM_NEWTCLASS CREATE ifindex 7 htb 8000:4 parent 8000:1
RTM_NEWQDISC CREATE ifindex 7 sfq 8004:0 parent 8000:4
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:7 parent 8000:1
)");
}

quenby::MarkPath path(bool marked) {
  quenby::MarkPath path;
  path.classifier = marked;
  path.ipv6 = true;
  return path;
}

TEST_F(DeviceTest, DiscoveryGoesToTheDirectQueueAndMarksToTheirClasses) {
  eth().remake_ip6_classifiers(path(true));
  EXPECT_EQ(kernel.requests(), R"(RTM_DELTFILTER REQUEST|ACK
  family 0 ifindex 3
  handle none
  parent 8000:0
  info prio 3 protocol 0x86dd
RTM_DELTFILTER REQUEST|ACK
  family 0 ifindex 3
  handle none
  parent 8000:0
  info prio 4 protocol 0x86dd
RTM_NEWTFILTER REQUEST|ACK|CREATE
  family 0 ifindex 3
  handle none
  parent 8000:0
  info prio 3 protocol 0x86dd
  TCA_KIND "u32"
  TCA_OPTIONS
    TCA_U32_CLASSID 8000:0
    TCA_U32_SEL
      flags TERMINAL
      hash mask 0 at 0
      key 3aff/ffff at 4 offmask 0
RTM_NEWTFILTER REQUEST|ACK|CREATE
  family 0 ifindex 3
  handle none
  parent 8000:0
  info prio 4 protocol 0x86dd
  TCA_KIND "fw"
  TCA_OPTIONS
    TCA_FW_MASK 0x80003fff
)");
}

TEST_F(DeviceTest, TheMarkProgramOfIPv6StandsInForARefusedFwFilter) {
  kernel.refuse(RTM_NEWTFILTER, 0);
  kernel.refuse(RTM_NEWTFILTER, EINVAL);
  ifb().remake_ip6_classifiers(path(true));
  const std::string program = kProgram;
  EXPECT_TRUE(kernel.requests().ends_with("  info prio 4 protocol 0x86dd\n" +
                                          program.substr(program.find("  TCA_KIND"))));
}

TEST_F(DeviceTest, WithoutMarksOnlyDiscoveryHasAFilter) {
  ifb().remake_ip6_classifiers(path(false));
  EXPECT_EQ(kernel.summaries(), R"(RTM_DELTFILTER ifindex 7 parent 8000:0 prio 3
RTM_DELTFILTER ifindex 7 parent 8000:0 prio 4
RTM_NEWTFILTER CREATE ifindex 7 u32 parent 8000:0 prio 3
)");
}

}  // namespace
}  // namespace golden
