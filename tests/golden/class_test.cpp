#include <gmock/gmock.h>

#include "tc/htb_class.h"
#include "tests/golden/device_test.h"

// The root, default and default-tariff classes. A buffer holds the time that the burst takes at its
// rate: 240 ms are 3,750,000 ticks of 64 ns, one second is 15,625,000.
namespace golden {
namespace {

using quenby::htb_action;
using testing::HasSubstr;

// The message of a class of the WAN device with a burst of 240 ms for rate and ceiling.
constexpr const char* kRootClass = R"(RTM_NEWTCLASS REQUEST|ACK|CREATE
  family 0 ifindex 3
  handle 8000:1
  parent 8000:0
  info 0
  TCA_KIND "htb"
  TCA_OPTIONS
    TCA_HTB_PARMS
      rate 1250000 bytes/s
      ceil 1250000 bytes/s
      buffer 3750000 ticks
      cbuffer 3750000 ticks
      quantum 125000 level 0 prio 0
    TCA_HTB_CTAB 1024 bytes
    TCA_HTB_RTAB 1024 bytes
)";

TEST_F(DeviceTest, CreatesTheRootClassAndTellsItsBurst) {
  EXPECT_EQ(eth().create_root_leaf(line_direction(false, kTenMbit)), 300'000);
  EXPECT_EQ(kernel.requests(), kRootClass);
}

TEST_F(DeviceTest, ALineWithoutSpeedGetsNoRootClass) {
  auto root = line_direction(false, -2);
  EXPECT_EQ(eth().create_root_leaf(root), -1);
  EXPECT_EQ(kernel.requests(), "");
}

// A clock of 4 ticks a second: 10000 / 4 + 1600 = 4100 bytes beat the 2400 of 240 ms, and take
// 410 ms.
TEST_F(DeviceTest, ACoarseClockRaisesTheBurst) {
  quenby::set_psched_hz(4);
  auto root = line_direction(false, 10'000);
  EXPECT_EQ(eth().create_root_leaf(root), 4100);
  EXPECT_THAT(kernel.requests(), HasSubstr(R"(
      buffer 6406250 ticks
      cbuffer 6406250 ticks
)"));
}

TEST_F(DeviceTest, ImqRootClassesStandApart) {
  auto up = line_direction(false, kTenMbit);
  auto down = line_direction(true, kTenMbit);
  imq(false).create_root_leaf(up);
  EXPECT_EQ(kernel.summaries(), "RTM_NEWTCLASS CREATE ifindex 9 htb 8000:8001 parent 8000:0\n");
  imq(true).create_root_leaf(down);
  EXPECT_EQ(kernel.summaries(), "RTM_NEWTCLASS CREATE ifindex 9 htb 8000:1 parent 8000:0\n");
}

TEST_F(DeviceTest, TheDefaultClassHasNoGuarantee) {
  eth().def_class_op(line_direction(false, kTenMbit), htb_action::create);
  EXPECT_EQ(kernel.values(), R"(RTM_NEWTCLASS CREATE ifindex 3 htb 8000:2 parent 8000:1
  rate 8 ceil 1250000 buffer 15625000 cbuffer 3750000 quantum 1000
)");
}

TEST_F(DeviceTest, ADefaultClassIsReplacedInPlace) {
  ifb().def_class_op(line_direction(true, 2'500'000), htb_action::update);
  EXPECT_EQ(kernel.values(), R"(RTM_NEWTCLASS REPLACE ifindex 7 htb 8000:2 parent 8000:1
  rate 8 ceil 2500000 buffer 15625000 cbuffer 3750000 quantum 1000
)");
}

TEST_F(DeviceTest, DefaultClassesAreDeletedWhateverTheirSpeed) {
  eth().def_class_op(line_direction(false, -2), htb_action::remove);
  EXPECT_EQ(kernel.summaries(), "RTM_DELTCLASS ifindex 3 8000:2 parent 8000:1\n");
  ifb().def_tar_class_op(default_direction(true, -2, 0), htb_action::remove);
  EXPECT_EQ(kernel.summaries(), "RTM_DELTCLASS ifindex 7 8000:3 parent 8000:1\n");
}

TEST_F(DeviceTest, DefaultClassesWithoutSpeedOrActionAreSkipped) {
  for (const htb_action action : {htb_action::create, htb_action::update, kNoAction}) {
    eth().def_class_op(line_direction(false, -2), action);
    eth().def_tar_class_op(default_direction(false, -2, 0), action);
    ifb().def_class_op(line_direction(true, -2), action);
    imq(true).def_class_op(default_direction(true, -2, 0), action);
  }
  eth().def_class_op(line_direction(false, kTenMbit), kNoAction);
  ifb().def_tar_class_op(default_direction(true, kTenMbit, 0), kNoAction);
  EXPECT_EQ(kernel.requests(), "");
}

TEST_F(DeviceTest, TheImqDefaultClassStandsUnderTheDownloadRoot) {
  imq(true).def_class_op(default_direction(true, kTenMbit, kTenMbit), htb_action::create);
  EXPECT_EQ(kernel.values(), R"(RTM_NEWTCLASS CREATE ifindex 9 htb 8000:2 parent 8000:1
  rate 8 ceil 1250000 buffer 15625000 cbuffer 3750000 quantum 1000
)");
}

TEST_F(DeviceTest, TheDefaultTariffKeepsItsGuarantee) {
  ifb().def_tar_class_op(default_direction(true, kTenMbit, 625'000), htb_action::create);
  EXPECT_EQ(kernel.values(), R"(RTM_NEWTCLASS CREATE ifindex 7 htb 8000:3 parent 8000:1
  rate 625000 ceil 1250000 buffer 3750000 cbuffer 3750000 quantum 62500
)");
}

TEST_F(DeviceTest, RootBurstGrowsToTheLargestTariffBurst) {
  eth().update_root_leaf_burst(line_direction(false, kTenMbit), 375'000);
  // 375,000 bytes take 300 ms.
  EXPECT_EQ(kernel.values(), R"(RTM_NEWTCLASS REPLACE ifindex 3 htb 8000:1 parent 8000:0
  rate 1250000 ceil 1250000 buffer 4687500 cbuffer 3750000 quantum 125000
)");
}

TEST_F(DeviceTest, RootBurstNeverShrinks) {
  eth().update_root_leaf_burst(line_direction(false, kTenMbit), 300'000);
  eth().update_root_leaf_burst(line_direction(false, kTenMbit), 1500);
  eth().update_root_leaf_burst(line_direction(false, -2), 375'000);
  EXPECT_EQ(kernel.requests(), "");
}

TEST_F(DeviceTest, RootBurstOneByteAboveIsSent) {
  imq(false).update_root_leaf_burst(line_direction(false, kTenMbit), 300'001);
  EXPECT_EQ(kernel.summaries(), "RTM_NEWTCLASS REPLACE ifindex 9 htb 8000:8001 parent 8000:0\n");
}

}  // namespace
}  // namespace golden
