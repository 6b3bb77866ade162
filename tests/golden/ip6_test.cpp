#include <linux/if_ether.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_conntrack.h>

#include <cerrno>

#include "shaper/connections.h"
#include "tests/golden/device_test.h"

// The requests of IPv6 about connections and classifiers.
namespace golden {
namespace {

quenby::Ip6Prefix prefix(const std::string& text) { return *quenby::parse_ip6_prefix(text); }

class Ip6ConnectionsTest : public testing::Test {
 protected:
  static quenby::Ip6Address address(const std::string& text) { return prefix(text).address; }
  void mend() { quenby::mend_ip6_marks(kernel.socket(), marks, quenby::any_mark()); }

  RecordingKernel kernel{NETLINK_NETFILTER};
  const quenby::MarkTable marks{{},
                                {quenby::address_set_entry(prefix("2001:db8::/48"), 4),
                                 quenby::address_set_entry(prefix("2001:db8:0:1::/64"), 5)}};
};

TEST_F(Ip6ConnectionsTest, AnotherMarkIsChangedInOurBits) {
  kernel.has_ip6_connection({address("2001:db8:0:1::7"), address("3fff::1"), 0x80040009});
  mend();
  EXPECT_EQ(kernel.requests(), R"(IPCTNL_MSG_CT_GET REQUEST|ACK|DUMP
  family 10
  MARK(8) 80 00 00 00
  MARK_MASK(21) 80 00 00 00
IPCTNL_MSG_CT_NEW REQUEST|ACK
  family 10
  TUPLE_ORIG(1) NESTED 18 00 01 80 14 00 03 00 20 01 0d b8 00 00 00 01 00 00 00 00 00 00 00 07
  MARK(8) 80 00 00 05
  MARK_MASK(21) 80 00 3f ff
)");
}

TEST_F(Ip6ConnectionsTest, TheRightMarkCostsNoRequest) {
  kernel.has_ip6_connection({address("2001:db8:0:2::7"), address("3fff::1"), 0x80000004});
  kernel.has_ip6_connection({address("3fff::1"), address("2001:db8:0:1::7"), 0x80000005});
  kernel.has_ip6_connection({address("3fff::1"), address("3fff::2"), 0x80000003});
  mend();
  EXPECT_EQ(kernel.summaries(), "IPCTNL_MSG_CT_GET\n");
}

TEST_F(Ip6ConnectionsTest, AKernelWithoutConnectionTrackingIsNoFailure) {
  kernel.refuse(NFNL_SUBSYS_CTNETLINK << 8 | IPCTNL_MSG_CT_GET, EINVAL);
  mend();
  EXPECT_EQ(kernel.summaries(), "IPCTNL_MSG_CT_GET\n");
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
  EXPECT_TRUE(kernel.requests().ends_with(R"(  info prio 4 protocol 0x86dd
  TCA_KIND "bpf"
  TCA_OPTIONS
    TCA_BPF_OPS_LEN 5
    TCA_BPF_OPS
      code 32 jt 0 jf 0 k 0xfffff014
      code 69 jt 0 jf 2 k 0x80000000
      code 84 jt 0 jf 0 k 0x80003fff
      code 22 jt 0 jf 0 k 0x0
      code 6 jt 0 jf 0 k 0x0
)"));
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
