#include "shaper/address_set.h"

#include <arpa/inet.h>
#include <linux/netfilter/ipset/ip_set.h>
#include <linux/netfilter/nfnetlink.h>

#include <cerrno>
#include <gtest/gtest.h>

#include "tests/golden/device_test.h"

// The requests about the address set.
namespace golden {
namespace {

using testing::ExitedWithCode;

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

TEST_F(AddressSetTest, EveryRefusalEndsTheRun) {
  refuse(IPSET_CMD_CREATE, EEXIST);
  refuse(IPSET_CMD_FLUSH, ENOENT);
  refuse(IPSET_CMD_ADD, EEXIST);
  refuse(IPSET_CMD_DEL, ENOENT);
  const quenby::SocketPtr& sock = kernel.socket();
  EXPECT_EXIT(quenby::create_address_set(sock), ExitedWithCode(1),
              "^Error: failed to create ipset ack\\(Object exists\\)\n$");
  EXPECT_EXIT(quenby::flush_address_set(sock), ExitedWithCode(1),
              "^Error: failed to delete ipset ack\\(Object not found\\)\n$");
  EXPECT_EXIT(quenby::add_address(sock, quenby::address_set_entry(address, 4)), ExitedWithCode(1),
              "^Error: failed to add ipset ip ack\\(Object exists\\)\n$");
  EXPECT_EXIT(quenby::delete_address(sock, address), ExitedWithCode(1),
              "^Error: failed to del ipset ip ack\\(Object not found\\)\n$");
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

TEST_F(AddressSetTest, AListThatIsRefusedIsNoEmptyOne) {
  refuse(IPSET_CMD_LIST, EPERM);
  EXPECT_EXIT(quenby::list_address_set(kernel.socket()), ExitedWithCode(1),
              "Error: failed to list ipset\\(");
}

TEST_F(AddressSetTest, AFailureToSendEndsTheRun) {
  kernel.fail_to_send();
  const quenby::SocketPtr& sock = kernel.socket();
  EXPECT_EXIT(quenby::create_address_set(sock), ExitedWithCode(1),
              "^Error: failed to send create ipset\\(Out of memory\\)\n$");
  EXPECT_EXIT(quenby::flush_address_set(sock), ExitedWithCode(1),
              "^Error: failed to send delete ipset\\(Out of memory\\)\n$");
  EXPECT_EXIT(quenby::add_address(sock, quenby::address_set_entry(address, 4)), ExitedWithCode(1),
              "^Error: failed to send add ipset ip\\(Out of memory\\)\n$");
  EXPECT_EXIT(quenby::delete_address(sock, address), ExitedWithCode(1),
              "^Error: failed to send del ipset ip\\(Out of memory\\)\n$");
}

}  // namespace
}  // namespace golden
