#include <linux/rtnetlink.h>

#include <algorithm>
#include <cerrno>
#include <gmock/gmock.h>

#include "tc/htb_class.h"
#include "tests/golden/device_test.h"

// The root, default, default-tariff and tariff classes. A buffer holds the time that the burst
// takes at its rate: 240 ms are 3,750,000 ticks of 64 ns, one second is 15,625,000.
namespace golden {
namespace {

using quenby::htb_action;
using testing::HasSubstr;

constexpr std::int64_t kTwentyMbit = 2'500'000;

TEST_F(DeviceTest, CreatesTheRootClassAndTellsItsBurst) {
  EXPECT_EQ(eth().create_root_leaf(line_direction(false, kTenMbit)), 300'000);
  EXPECT_EQ(kernel.requests(), R"(RTM_NEWTCLASS REQUEST|ACK|CREATE
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
)");
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

TEST_F(DeviceTest, RootClassesAreMadeAndReplacedInPlace) {
  const auto up = line_direction(false, kTwentyMbit);
  const auto down = line_direction(true, kTwentyMbit);
  imq(false).create_root_leaf(line_direction(false, kTenMbit));
  imq(true).create_root_leaf(line_direction(true, kTenMbit));
  eth().update_root_leaf(up);
  ifb().update_root_leaf(down);
  imq(true).update_root_leaf(down);
  imq(false).update_root_leaf(up);
  // The largest burst of a tariff: 300 ms of traffic, and one byte more than its own.
  eth().update_root_leaf_burst(line_direction(false, kTenMbit), 375'000);
  imq(false).update_root_leaf_burst(line_direction(false, kTenMbit), 300'001);
  EXPECT_EQ(kernel.values(), R"(RTM_NEWTCLASS CREATE ifindex 9 htb 8000:8001 parent 8000:0
  rate 1250000 ceil 1250000 buffer 3750000 cbuffer 3750000 quantum 125000
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:1 parent 8000:0
  rate 1250000 ceil 1250000 buffer 3750000 cbuffer 3750000 quantum 125000
RTM_NEWTCLASS REPLACE ifindex 3 htb 8000:1 parent 8000:0
  rate 2500000 ceil 2500000 buffer 3750000 cbuffer 3750000 quantum 200000
RTM_NEWTCLASS REPLACE ifindex 7 htb 8000:1 parent 8000:0
  rate 2500000 ceil 2500000 buffer 3750000 cbuffer 3750000 quantum 200000
RTM_NEWTCLASS REPLACE ifindex 9 htb 8000:1 parent 8000:0
  rate 2500000 ceil 2500000 buffer 3750000 cbuffer 3750000 quantum 200000
RTM_NEWTCLASS REPLACE ifindex 9 htb 8000:8001 parent 8000:0
  rate 2500000 ceil 2500000 buffer 3750000 cbuffer 3750000 quantum 200000
RTM_NEWTCLASS REPLACE ifindex 3 htb 8000:1 parent 8000:0
  rate 1250000 ceil 1250000 buffer 4687500 cbuffer 3750000 quantum 125000
RTM_NEWTCLASS REPLACE ifindex 9 htb 8000:8001 parent 8000:0
  rate 1250000 ceil 1250000 buffer 3750000 cbuffer 3750000 quantum 125000
)");
}

TEST_F(DeviceTest, TheDefaultClassHasNoGuaranteeAndTheDefaultTariffKeepsIts) {
  eth().def_class_op(line_direction(false, kTenMbit), htb_action::create);
  ifb().def_class_op(line_direction(true, kTwentyMbit), htb_action::update);
  imq(true).def_class_op(default_direction(true, kTenMbit, kTenMbit), htb_action::create);
  ifb().def_tar_class_op(default_direction(true, kTenMbit, 625'000), htb_action::create);
  EXPECT_EQ(kernel.values(), R"(RTM_NEWTCLASS CREATE ifindex 3 htb 8000:2 parent 8000:1
  rate 8 ceil 1250000 buffer 15625000 cbuffer 3750000 quantum 1000
RTM_NEWTCLASS REPLACE ifindex 7 htb 8000:2 parent 8000:1
  rate 8 ceil 2500000 buffer 15625000 cbuffer 3750000 quantum 1000
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:2 parent 8000:1
  rate 8 ceil 1250000 buffer 15625000 cbuffer 3750000 quantum 1000
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:3 parent 8000:1
  rate 625000 ceil 1250000 buffer 3750000 cbuffer 3750000 quantum 62500
)");
}

TEST_F(DeviceTest, DefaultClassesAreDeletedWhateverTheirSpeed) {
  eth().def_class_op(line_direction(false, -2), htb_action::remove);
  EXPECT_EQ(kernel.summaries(), "RTM_DELTCLASS ifindex 3 8000:2 parent 8000:1\n");
  ifb().def_tar_class_op(default_direction(true, -2, 0), htb_action::remove);
  EXPECT_EQ(kernel.summaries(), "RTM_DELTCLASS ifindex 7 8000:3 parent 8000:1\n");
}

TEST_F(DeviceTest, TariffsWithAggregationAndBurst) {
  auto t = direction(false, 5, 1'000'000);
  t.aggregation = 2.0;
  t.burst_size = 1500;
  eth().class_op(t, htb_action::create);
  auto no_guarantee = direction(true, 15'000, 1'000'000);
  no_guarantee.aggregation = 1e300;
  no_guarantee.burst_size = 1500;
  ifb().class_op(no_guarantee, htb_action::update);
  // Half the speed is guaranteed; 1500 bytes take 3 ms at that rate, 46,875 ticks.
  EXPECT_EQ(kernel.values(), R"(RTM_NEWTCLASS CREATE ifindex 3 htb 8000:5 parent 8000:1
  rate 500000 ceil 1000000 buffer 46875 cbuffer 3750000 quantum 50000
RTM_NEWTCLASS REPLACE ifindex 7 htb 8000:3a98 parent 8000:1
  rate 8 ceil 1000000 buffer 15625000 cbuffer 3750000 quantum 1000
)");
}

// The ticks of the one burst in the recorded requests.
std::uint64_t ticks_of(const std::string& requests) {
  const std::string word = " buffer ";
  return std::stoull(requests.substr(requests.find(word) + word.size()));
}

// What the library makes of the largest burst: whole microseconds of it, each 15.625 ticks.
TEST_F(DeviceTest, TheLargestBurstWrapsAtNoRate) {
  quenby::HtbEthIntf& device = eth();
  const std::uint64_t largest = 2'147'483'647;
  const std::uint64_t longest_us = 274'877'906;
  for (std::uint64_t rate = 9; rate <= 4'294'967'295; rate += rate / 100 + 1) {
    auto t = direction(false, 5, static_cast<std::int64_t>(rate));
    t.burst_size = static_cast<std::int64_t>(largest);
    device.class_op(t, htb_action::create);
    const std::uint64_t us = std::min(longest_us, largest * 1'000'000 / rate);
    const std::uint64_t one_byte_us = 1'000'000 / rate + 1;
    const std::uint64_t ticks = ticks_of(kernel.requests());
    EXPECT_LE(ticks, us * 15'625 / 1000) << rate;
    EXPECT_GT(ticks, (us - one_byte_us) * 15'625 / 1000 - 16) << rate;
  }
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
  // One that is gone already.
  kernel.refuse(RTM_DELTCLASS, ENOENT);
  eth().class_op(direction(false, 5, kTenMbit), htb_action::remove);
  EXPECT_EQ(kernel.summaries(), "RTM_DELTCLASS ifindex 3 8000:5 parent 8000:1\n");
}

}  // namespace
}  // namespace golden
