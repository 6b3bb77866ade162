#include "tests/golden/device_test.h"

// Making and deleting the virtual devices.
namespace golden {
namespace {

TEST_F(BareRouterTest, AddsAnIfbDevice) {
  ifb().link_add();
  EXPECT_EQ(kernel.requests(), R"(RTM_NEWLINK REQUEST|ACK|CREATE
  family 0 ifindex 0
  flags UP change UP
  IFLA_IFNAME "ifb_ingr"
  IFLA_MTU 16000
  IFLA_TXQLEN 11000
  IFLA_LINKINFO
    IFLA_INFO_KIND "ifb"
RTM_GETLINK REQUEST|ACK|DUMP
)");
}

TEST_F(BareRouterTest, AddsAnImqDevice) {
  imq(false).link_add();
  const std::string request = kernel.requests();
  EXPECT_NE(request.find("  IFLA_IFNAME \"imq0\"\n"), std::string::npos);
  EXPECT_NE(request.find("    IFLA_INFO_KIND \"imq\"\n"), std::string::npos);
}

TEST_F(BareRouterTest, ANewDeviceCanBeUsedAtOnce) {
  quenby::HtbIfbIntf& device = ifb();
  device.link_add();
  EXPECT_TRUE(device.link_exists("ifb_ingr"));
  kernel.requests();
  device.root_qdisc_add(false);
  EXPECT_EQ(kernel.summaries(), "RTM_NEWQDISC CREATE ifindex 7 htb 8000:0 parent root\n");
}

TEST_F(DeviceTest, DeletesTheDeviceByItsName) {
  quenby::HtbIfbIntf& device = ifb();
  device.link_del();
  EXPECT_EQ(kernel.requests(), R"(RTM_DELLINK REQUEST|ACK
  family 0 ifindex 0
  flags none change none
  IFLA_IFNAME "ifb_ingr"
RTM_GETLINK REQUEST|ACK|DUMP
)");
  EXPECT_FALSE(device.link_exists("ifb_ingr"));
  EXPECT_TRUE(device.link_exists("eth1"));
}

TEST_F(DeviceTest, ADeletedDeviceIsNotDeletedAgain) {
  quenby::HtbIfbIntf& device = ifb();
  device.link_del();
  kernel.requests();
  device.link_del();
  EXPECT_EQ(kernel.requests(), "");
}

}  // namespace
}  // namespace golden
