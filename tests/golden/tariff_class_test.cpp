#include <linux/rtnetlink.h>

#include <algorithm>
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
  EXPECT_EQ(kernel.values(), R"(RTM_NEWTCLASS CREATE ifindex 3 htb 8000:5 parent 8000:1
  rate 500000 ceil 1000000 buffer 46875 cbuffer 3750000 quantum 50000
)");
}

TEST_F(DeviceTest, ATariffWithoutGuaranteeIgnoresItsBurst) {
  auto t = direction(true, 15'000, 1'000'000);
  t.aggregation = 1e300;
  t.burst_size = 1500;
  ifb().class_op(t, htb_action::update);
  EXPECT_EQ(kernel.values(), R"(RTM_NEWTCLASS REPLACE ifindex 7 htb 8000:3a98 parent 8000:1
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

}  // namespace
}  // namespace golden
