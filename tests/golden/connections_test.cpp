#include "shaper/connections.h"

#include <arpa/inet.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_conntrack.h>

#include <cerrno>
#include <gtest/gtest.h>

#include "tests/golden/recording_kernel.h"

// The requests about live connections.
namespace golden {
namespace {

using quenby::MarkTable;

constexpr std::uint32_t kGold = 0x80000004;
constexpr std::uint32_t kForeignBits = 0x00040000;

class ConnectionsTest : public testing::Test {
 protected:
  void has(const char* source, const char* reply_source, std::uint32_t mark,
           std::uint16_t zone = 0) {
    kernel.has_connection({inet_addr(source), inet_addr(reply_source), mark, zone});
  }
  void refuse(int command, int error) {
    kernel.refuse(NFNL_SUBSYS_CTNETLINK << 8 | command, error);
  }
  void mend() { quenby::mend_marks(kernel.socket(), marks, quenby::any_mark()); }

  RecordingKernel kernel{NETLINK_NETFILTER};
  const MarkTable marks{{quenby::address_set_entry(inet_addr("10.0.0.7"), 4)}};
};

TEST_F(ConnectionsTest, TheKernelPicksTheConnections) {
  quenby::mend_marks(kernel.socket(), marks, quenby::one_of({kGold}));
  EXPECT_EQ(kernel.requests(), R"(IPCTNL_MSG_CT_GET REQUEST|ACK|DUMP
  family 2
  MARK(8) 80 00 00 04
  MARK_MASK(21) 80 00 3f ff
)");
}

TEST_F(ConnectionsTest, AnotherMarkIsChangedInOurBits) {
  has("10.0.0.7", "198.51.100.1", 0x80000009 | kForeignBits);
  mend();
  EXPECT_EQ(kernel.requests(), R"(IPCTNL_MSG_CT_GET REQUEST|ACK|DUMP
  family 2
  MARK(8) 80 00 00 00
  MARK_MASK(21) 80 00 00 00
IPCTNL_MSG_CT_NEW REQUEST|ACK
  family 2
  TUPLE_ORIG(1) NESTED 0c 00 01 80 08 00 01 00 0a 00 00 07
  MARK(8) 80 00 00 04
  MARK_MASK(21) 80 00 3f ff
)");
}

TEST_F(ConnectionsTest, TheZoneNamesTheConnectionToo) {
  has("198.51.100.1", "10.0.0.7", 0x80000003, 258);
  mend();
  EXPECT_NE(kernel.requests().find("  ZONE(18) 01 02\n  MARK(8) 80 00 00 04\n"), std::string::npos);
}

TEST_F(ConnectionsTest, TheRightMarkCostsNoRequest) {
  has("10.0.0.7", "198.51.100.1", kGold);
  has("10.0.0.7", "198.51.100.2", kGold | kForeignBits);
  has("10.0.0.9", "198.51.100.2", 0x80000003);
  mend();
  EXPECT_EQ(kernel.summaries(), "IPCTNL_MSG_CT_GET\n");
}

TEST_F(ConnectionsTest, WhatIsNotMarkedByUsIsLeftAlone) {
  has("10.0.0.7", "198.51.100.1", 0);
  has("10.0.0.7", "198.51.100.2", 5 | kForeignBits);
  mend();
  EXPECT_EQ(kernel.summaries(), "IPCTNL_MSG_CT_GET\n");
}

TEST_F(ConnectionsTest, WithoutATariffTheDefaultTariffsMark) {
  has("10.0.0.8", "198.51.100.1", 0x80000005);
  mend();
  EXPECT_NE(kernel.requests().find("  MARK(8) 80 00 00 03\n"), std::string::npos);
}

TEST_F(ConnectionsTest, AnEndedConnectionDoesNotStopTheOthers) {
  has("10.0.0.7", "198.51.100.1", 0x80000005);
  has("10.0.0.7", "198.51.100.2", 0x80000005);
  refuse(IPCTNL_MSG_CT_NEW, ENOENT);
  mend();
  EXPECT_EQ(kernel.summaries(), "IPCTNL_MSG_CT_GET\nIPCTNL_MSG_CT_NEW\nIPCTNL_MSG_CT_NEW\n");
}

TEST_F(ConnectionsTest, AKernelWithoutConnectionTrackingIsNoFailure) {
  has("10.0.0.7", "198.51.100.1", 0x80000005);
  refuse(IPCTNL_MSG_CT_GET, EINVAL);
  mend();
  EXPECT_EQ(kernel.summaries(), "IPCTNL_MSG_CT_GET\n");
  kernel.fail_to_send();
  mend();
  EXPECT_EQ(kernel.summaries(), "");
}

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

}  // namespace
}  // namespace golden
