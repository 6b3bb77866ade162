#include <linux/rtnetlink.h>

#include <cerrno>

#include "tests/golden/device_test.h"

// The classes of tariffs, and what ends the run. A buffer holds the time that the burst takes at
// its rate, in ticks of 64 ns.
namespace golden {
namespace {

using quenby::htb_action;
using testing::ExitedWithCode;

// Half the speed is guaranteed; 1500 bytes take 3 ms at that rate, 46,875 ticks.
TEST_F(DeviceTest, ATariffWithAggregationAndBurst) {
  auto t = direction(false, 5, 1'000'000);
  t.aggregation = 2.0;
  t.burst_size = 1500;
  eth().class_op(t, htb_action::create);
  EXPECT_EQ(kernel.requests(), R"(RTM_NEWTCLASS REQUEST|ACK|CREATE
  family 0 ifindex 3
  handle 8000:5
  parent 8000:1
  info 0
  TCA_KIND "htb"
  TCA_OPTIONS
    TCA_HTB_PARMS
      rate 500000 bytes/s
      ceil 1000000 bytes/s
      buffer 46875 ticks
      cbuffer 3750000 ticks
      quantum 0 level 0 prio 0
    TCA_HTB_CTAB 1024 bytes
    TCA_HTB_RTAB 1024 bytes
)");
}

TEST_F(DeviceTest, ATariffWithoutGuaranteeIgnoresItsBurst) {
  auto t = direction(true, 15'000, 1'000'000);
  t.aggregation = 1e300;
  t.burst_size = 1500;
  ifb().class_op(t, htb_action::update);
  EXPECT_EQ(kernel.requests(), R"(RTM_NEWTCLASS REQUEST|ACK|REPLACE
  family 0 ifindex 7
  handle 8000:3a98
  parent 8000:1
  info 0
  TCA_KIND "htb"
  TCA_OPTIONS
    TCA_HTB_PARMS
      rate 8 bytes/s
      ceil 1000000 bytes/s
      buffer 15625000 ticks
      cbuffer 3750000 ticks
      quantum 0 level 0 prio 0
    TCA_HTB_CTAB 1024 bytes
    TCA_HTB_RTAB 1024 bytes
)");
}

TEST_F(DeviceTest, ATariffOfTheImqUpload) {
  imq(false).class_op(direction(false, 5, kTenMbit), htb_action::create);
  EXPECT_EQ(kernel.requests(), R"(RTM_NEWTCLASS REQUEST|ACK|CREATE
  family 0 ifindex 9
  handle 8000:8005
  parent 8000:8001
  info 0
  TCA_KIND "htb"
  TCA_OPTIONS
    TCA_HTB_PARMS
      rate 1250000 bytes/s
      ceil 1250000 bytes/s
      buffer 3750000 ticks
      cbuffer 3750000 ticks
      quantum 0 level 0 prio 0
    TCA_HTB_CTAB 1024 bytes
    TCA_HTB_RTAB 1024 bytes
)");
}

TEST_F(DeviceTest, TariffClassesOfEveryDevice) {
  eth().class_op(direction(false, 0x4005, kTenMbit), htb_action::create);
  ifb().class_op(direction(true, 0x4005, kTenMbit), htb_action::create);
  imq(true).class_op(direction(true, 0x4005, kTenMbit), htb_action::create);
  imq(false).class_op(direction(false, 0x3005, kTenMbit), htb_action::create);
  EXPECT_EQ(kernel.summaries(), R"(RTM_NEWTCLASS CREATE ifindex 3 htb 8000:5 parent 8000:1
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:5 parent 8000:1
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:4005 parent 8000:1
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:b005 parent 8000:8001
)");
}

TEST_F(DeviceTest, DeletesATariffClass) {
  imq(false).class_op(direction(false, 5, kTenMbit), htb_action::remove);
  EXPECT_EQ(kernel.requests(), R"(RTM_DELTCLASS REQUEST|ACK
  family 0 ifindex 9
  handle 8000:8005
  parent 8000:8001
  info 0
)");
}

TEST_F(DeviceTest, DeletingAClassThatIsGoneSucceeds) {
  kernel.refuse(RTM_DELTCLASS, ENOENT);
  eth().class_op(direction(false, 5, kTenMbit), htb_action::remove);
  EXPECT_EQ(kernel.summaries(), "RTM_DELTCLASS ifindex 3 8000:5 parent 8000:1\n");
}

TEST_F(DeviceTest, AClassInUseCannotBeDeleted) {
  quenby::HtbIfbIntf& device = ifb();
  kernel.refuse(RTM_DELTCLASS, EBUSY);
  EXPECT_EXIT(device.class_op(direction(true, 5, kTenMbit), htb_action::remove), ExitedWithCode(1),
              "^Error: ifb_ingr failed to delete 5 cls\\(Object busy\\)\n$");
}

TEST_F(DeviceTest, ErrorsNameTheMappedClass) {
  quenby::HtbImqIntf& device = imq(false);
  kernel.refuse(RTM_NEWTCLASS, ENOENT);
  EXPECT_EXIT(device.class_op(direction(false, 5, kTenMbit), htb_action::create), ExitedWithCode(1),
              "^Error: imq0 failed to add 32773 cls\\(Object not found\\)\n$");
}

TEST_F(DeviceTest, ARefusedUpdateIsReportedAsAdd) {
  quenby::HtbEthIntf& device = eth();
  kernel.refuse(RTM_NEWTCLASS, EINVAL);
  EXPECT_EXIT(device.class_op(direction(false, 5, kTenMbit), htb_action::update), ExitedWithCode(1),
              "^Error: eth1 failed to add 5 cls\\(Invalid input data or parameter\\)\n$");
}

TEST_F(DeviceTest, AWrongActionEndsTheRun) {
  quenby::HtbEthIntf& device = eth();
  EXPECT_EXIT(device.class_op(direction(false, 5, kTenMbit), kNoAction), ExitedWithCode(1),
              "^Error: eth1: cls 5 wrong action unknown\\(0\\)\n$");
}

}  // namespace
}  // namespace golden
