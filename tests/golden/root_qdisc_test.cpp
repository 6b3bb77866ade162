#include <linux/rtnetlink.h>

#include <cerrno>

#include "tests/golden/device_test.h"

// The HTB root qdisc.
namespace golden {
namespace {

TEST_F(DeviceTest, AddsARootWithADefaultClass) {
  eth().root_qdisc_add(true);
  EXPECT_EQ(kernel.requests(), R"(RTM_NEWQDISC REQUEST|ACK|CREATE
  family 0 ifindex 3
  handle 8000:0
  parent root
  info 0
  TCA_KIND "htb"
  TCA_OPTIONS
    TCA_HTB_INIT
      version 3 rate2quantum 10
      default class 2
)");
}

TEST_F(DeviceTest, AddsARootWithoutADefaultClass) {
  ifb().root_qdisc_add(false);
  EXPECT_EQ(kernel.values(), R"(RTM_NEWQDISC CREATE ifindex 7 htb 8000:0 parent root
  version 3 rate2quantum 10 default class 0
)");
}

TEST_F(DeviceTest, TheImqDefaultClassIsTwoInBothDirections) {
  for (const bool ingress : {false, true}) {
    imq(ingress).root_qdisc_add(true);
    EXPECT_EQ(kernel.values(), R"(RTM_NEWQDISC CREATE ifindex 9 htb 8000:0 parent root
  version 3 rate2quantum 10 default class 2
)");
  }
}

TEST_F(DeviceTest, DeletesTheRootThatItFinds) {
  kernel.has_root_qdisc(kWanIndex, kHtb);
  eth().root_qdisc_del();
  EXPECT_EQ(kernel.requests(), R"(RTM_GETQDISC REQUEST|ACK|DUMP
  family 0 ifindex 0
  handle none
  parent none
  info 0
RTM_DELQDISC REQUEST|ACK
  family 0 ifindex 3
  handle 8000:0
  parent root
  info 0
  TCA_KIND "htb"
)");
}

TEST_F(DeviceTest, DeletesARootOfAnotherHandle) {
  kernel.has_root_qdisc(kWanIndex, 0x10000);
  eth().root_qdisc_del();
  EXPECT_EQ(kernel.summaries(), "RTM_GETQDISC DUMP\nRTM_DELQDISC ifindex 3 htb 1:0 parent root\n");
}

TEST_F(DeviceTest, LeavesTheKernelsOwnRootAlone) {
  kernel.has_root_qdisc(kWanIndex, 0);
  eth().root_qdisc_del();
  EXPECT_EQ(kernel.summaries(), "RTM_GETQDISC DUMP\n");
}

TEST_F(DeviceTest, LeavesTheRootOfAnotherDeviceAlone) {
  kernel.has_root_qdisc(kImqIndex, kHtb);
  eth().root_qdisc_del();
  EXPECT_EQ(kernel.summaries(), "RTM_GETQDISC DUMP\n");
}

TEST_F(DeviceTest, GoesOnWhenTheRootCannotBeDeleted) {
  for (const int error : {ENOENT, EPERM}) {
    kernel.has_root_qdisc(kWanIndex, kHtb);
    kernel.refuse(RTM_DELQDISC, error);
    eth().root_qdisc_del();
    EXPECT_EQ(kernel.summaries(),
              "RTM_GETQDISC DUMP\nRTM_DELQDISC ifindex 3 htb 8000:0 parent root\n");
  }
}

TEST_F(DeviceTest, InitReplacesTheRootOfADeviceThatExists) {
  kernel.has_root_qdisc(kImqIndex, kHtb);
  quenby::GlobalSet set;
  set.defaults.upload.speed = kTenMbit;
  imq(false).init_qdisc(set);
  EXPECT_EQ(kernel.values(), R"(RTM_GETQDISC DUMP
RTM_DELQDISC ifindex 9 htb 8000:0 parent root
RTM_NEWQDISC CREATE ifindex 9 htb 8000:0 parent root
  version 3 rate2quantum 10 default class 2
)");
}

TEST_F(BareRouterTest, InitMakesTheDeviceThatIsMissing) {
  quenby::GlobalSet set;
  imq(false).init_qdisc(set);
  EXPECT_EQ(kernel.summaries(), R"(RTM_NEWLINK CREATE "imq0"
RTM_GETLINK DUMP
RTM_NEWQDISC CREATE ifindex 9 htb 8000:0 parent root
)");
}

TEST_F(DeviceTest, InitLooksAtTheDefaultOfItsOwnDirection) {
  quenby::GlobalSet set;
  set.defaults.download.speed = 0;
  const std::string with_default = "      default class 2\n";
  imq(true).init_qdisc(set);
  EXPECT_TRUE(kernel.requests().ends_with(with_default));
  imq(false).init_qdisc(set);
  EXPECT_FALSE(kernel.requests().ends_with(with_default));
}

}  // namespace
}  // namespace golden
