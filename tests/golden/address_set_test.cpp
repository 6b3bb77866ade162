#include "shaper/address_set.h"

#include <arpa/inet.h>
#include <linux/netfilter/ipset/ip_set.h>
#include <linux/netfilter/nfnetlink.h>

#include <cerrno>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/golden/device_test.h"

// The requests about the address set.
namespace golden {
namespace {

using testing::Eq;
using testing::ExitedWithCode;

quenby::Ip6Prefix prefix(const std::string& text) { return *quenby::parse_ip6_prefix(text); }

class AddressSetTest : public testing::Test {
 protected:
  // The next request of this command is answered with the error number `error`.
  void refuse(int command, int error) { kernel.refuse(NFNL_SUBSYS_IPSET << 8 | command, error); }

  RecordingKernel kernel{NETLINK_NETFILTER};
  const std::uint32_t address = inet_addr("192.168.1.10");
};

TEST_F(AddressSetTest, CreatesASetWithPacketMarks) {
  quenby::create_address_set(kernel.socket());
  EXPECT_EQ(kernel.requests(), R"(IPSET_CMD_CREATE REQUEST|ACK
  family 2 version 0 resource 0
  PROTOCOL(1) 06
  SETNAME(2) "kavo_opt_shaper"
  TYPENAME(3) "hash:ip"
  REVISION(4) 04
  FAMILY(5) 02
  DATA(7) NESTED
    CADT_FLAGS(8) NET_BYTEORDER 00 00 00 40
)");
}

TEST_F(AddressSetTest, DeletingTheSetEmptiesIt) {
  quenby::flush_address_set(kernel.socket());
  EXPECT_EQ(kernel.requests(), R"(IPSET_CMD_FLUSH REQUEST|ACK
  family 2 version 0 resource 0
  PROTOCOL(1) 06
  SETNAME(2) "kavo_opt_shaper"
)");
}

TEST_F(AddressSetTest, AddsAnAddressWithItsMark) {
  quenby::add_address(kernel.socket(), quenby::address_set_entry(address, 4));
  EXPECT_EQ(kernel.requests(), R"(IPSET_CMD_ADD REQUEST|ACK
  family 2 version 0 resource 0
  PROTOCOL(1) 06
  SETNAME(2) "kavo_opt_shaper"
  DATA(7) NESTED
    IP(1) NESTED
      IPADDR_IPV4(1) NET_BYTEORDER c0 a8 01 0a
    SKBMARK(27) NET_BYTEORDER 80 00 00 04 80 00 3f ff
    LINENO(9) NET_BYTEORDER 00 00 00 00
)");
}

TEST_F(AddressSetTest, DeletesAnAddress) {
  quenby::delete_address(kernel.socket(), address);
  EXPECT_EQ(kernel.requests(), R"(IPSET_CMD_DEL REQUEST|ACK
  family 2 version 0 resource 0
  PROTOCOL(1) 06
  SETNAME(2) "kavo_opt_shaper"
  DATA(7) NESTED
    IP(1) NESTED
      IPADDR_IPV4(1) NET_BYTEORDER c0 a8 01 0a
    LINENO(9) NET_BYTEORDER 00 00 00 00
)");
}

TEST_F(AddressSetTest, ListsTheSet) {
  quenby::list_address_set(kernel.socket());
  EXPECT_EQ(kernel.requests(), R"(IPSET_CMD_LIST REQUEST|ACK|DUMP
  family 2 version 0 resource 0
  PROTOCOL(1) 06
  SETNAME(2) "kavo_opt_shaper"
)");
}

TEST_F(AddressSetTest, NoSetAndAKernelWithoutSetsAreTheSame) {
  for (const int error : {ENOENT, EINVAL}) {
    refuse(IPSET_CMD_LIST, error);
    EXPECT_EQ(quenby::list_address_set(kernel.socket()), std::nullopt);
  }
}

TEST_F(AddressSetTest, CreatesASetOfNetworks) {
  quenby::create_address_set(kernel.socket(), quenby::Family::ipv6);
  EXPECT_EQ(kernel.requests(), R"(IPSET_CMD_CREATE REQUEST|ACK
  family 10 version 0 resource 0
  PROTOCOL(1) 06
  SETNAME(2) "kavo_opt_shaper6"
  TYPENAME(3) "hash:net"
  REVISION(4) 06
  FAMILY(5) 0a
  DATA(7) NESTED
    CADT_FLAGS(8) NET_BYTEORDER 00 00 00 40
)");
}

TEST_F(AddressSetTest, AddsAPrefixWithItsMark) {
  quenby::add_address(kernel.socket(), quenby::address_set_entry(prefix("2001:db8:0:ff::/56"), 4));
  EXPECT_EQ(kernel.requests(), R"(IPSET_CMD_ADD REQUEST|ACK
  family 10 version 0 resource 0
  PROTOCOL(1) 06
  SETNAME(2) "kavo_opt_shaper6"
  DATA(7) NESTED
    IP(1) NESTED
      IPADDR_IPV6(2) NET_BYTEORDER 20 01 0d b8 00 00 00 00 00 00 00 00 00 00 00 00
    CIDR(3) 38
    SKBMARK(27) NET_BYTEORDER 80 00 00 04 80 00 3f ff
    LINENO(9) NET_BYTEORDER 00 00 00 00
)");
}

TEST_F(AddressSetTest, DeletesAPrefix) {
  quenby::delete_address(kernel.socket(), prefix("2001:db8::1"));
  EXPECT_EQ(kernel.requests(), R"(IPSET_CMD_DEL REQUEST|ACK
  family 10 version 0 resource 0
  PROTOCOL(1) 06
  SETNAME(2) "kavo_opt_shaper6"
  DATA(7) NESTED
    IP(1) NESTED
      IPADDR_IPV6(2) NET_BYTEORDER 20 01 0d b8 00 00 00 00 00 00 00 00 00 00 00 01
    CIDR(3) 80
    LINENO(9) NET_BYTEORDER 00 00 00 00
)");
}

TEST_F(AddressSetTest, LooksForAPrefix) {
  EXPECT_TRUE(quenby::has_address(kernel.socket(), prefix("2001:db8::/64")));
  EXPECT_EQ(kernel.summaries(), "IPSET_CMD_TEST\n");
  refuse(IPSET_CMD_TEST, IPSET_ERR_EXIST);
  EXPECT_FALSE(quenby::has_address(kernel.socket(), prefix("2001:db8::/64")));
}

TEST_F(AddressSetTest, LooksForAWholeAddressInTheList) {
  EXPECT_FALSE(quenby::has_address(kernel.socket(), prefix("2001:db8::1")));
  EXPECT_EQ(kernel.summaries(), "IPSET_CMD_TEST\nIPSET_CMD_LIST\n");
}

TEST_F(AddressSetTest, ListsAndEmptiesTheSet) {
  quenby::list_prefix_set(kernel.socket());
  quenby::flush_prefix_set(kernel.socket());
  EXPECT_EQ(kernel.requests(), R"(IPSET_CMD_LIST REQUEST|ACK|DUMP
  family 10 version 0 resource 0
  PROTOCOL(1) 06
  SETNAME(2) "kavo_opt_shaper6"
IPSET_CMD_FLUSH REQUEST|ACK
  family 10 version 0 resource 0
  PROTOCOL(1) 06
  SETNAME(2) "kavo_opt_shaper6"
)");
}

TEST_F(AddressSetTest, ASetThatIsNotThereIsEmpty) {
  refuse(IPSET_CMD_FLUSH, ENOENT);
  quenby::flush_prefix_set(kernel.socket());
  EXPECT_EQ(kernel.summaries(), "IPSET_CMD_FLUSH\n");
}

TEST_F(AddressSetTest, EveryRefusalAndFailureToSendEndsTheRun) {
  const quenby::SocketPtr& sock = kernel.socket();
  const quenby::Ip6Prefix one = prefix("2001:db8::1");
  const struct {
    int command, error;
    std::function<void()> operation;
    const char* refused;
    const char* not_sent;
  } rows[] = {
      {IPSET_CMD_CREATE, EEXIST, [&] { quenby::create_address_set(sock); },
       "create ipset ack(Object exists)", "send create ipset"},
      {IPSET_CMD_FLUSH, ENOENT, [&] { quenby::flush_address_set(sock); },
       "delete ipset ack(Object not found)", "send delete ipset"},
      {IPSET_CMD_ADD, EEXIST,
       [&] { quenby::add_address(sock, quenby::address_set_entry(address, 4)); },
       "add ipset ip ack(Object exists)", "send add ipset ip"},
      {IPSET_CMD_DEL, ENOENT, [&] { quenby::delete_address(sock, address); },
       "del ipset ip ack(Object not found)", "send del ipset ip"},
      // The same of prefixes.
      {IPSET_CMD_CREATE, EEXIST, [&] { quenby::create_address_set(sock, quenby::Family::ipv6); },
       "create ipset ack(Object exists)", "send create ipset"},
      {IPSET_CMD_FLUSH, EPERM, [&] { quenby::flush_prefix_set(sock); },
       "delete ipset ack(Operation not permitted)", "send delete ipset"},
      {IPSET_CMD_ADD, EEXIST, [&] { quenby::add_address(sock, quenby::address_set_entry(one, 4)); },
       "add ipset ip ack(Object exists)", "send add ipset ip"},
      {IPSET_CMD_DEL, ENOENT, [&] { quenby::delete_address(sock, one); },
       "del ipset ip ack(Object not found)", "send del ipset ip"},
  };
  for (const auto& row : rows) {
    const auto run = [&](bool sent) {
      sent ? refuse(row.command, row.error) : kernel.fail_to_send();
      row.operation();
    };
    const std::string start = "Error: failed to ";
    EXPECT_EXIT(run(true), ExitedWithCode(1), Eq(start + row.refused + "\n"));
    EXPECT_EXIT(run(false), ExitedWithCode(1), Eq(start + row.not_sent + "(Out of memory)\n"));
  }
  // No list is no empty one.
  refuse(IPSET_CMD_LIST, EPERM);
  EXPECT_EXIT(quenby::list_address_set(sock), ExitedWithCode(1),
              Eq("Error: failed to list ipset(Operation not permitted)\n"));
}

}  // namespace
}  // namespace golden
