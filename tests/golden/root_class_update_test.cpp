#include <linux/rtnetlink.h>

#include <cerrno>

#include "tests/golden/device_test.h"

// Changing the root class in place. 240 ms of traffic at any rate are 3,750,000 ticks of 64 ns, one
// second is 15,625,000.
namespace golden {
namespace {

using testing::ExitedWithCode;

constexpr std::int64_t kTwentyMbit = 2'500'000;

TEST_F(DeviceTest, TheRootClassIsReplacedInPlace) {
  auto root = line_direction(false, kTwentyMbit);
  eth().update_root_leaf(root);
  EXPECT_EQ(kernel.values(), R"(RTM_NEWTCLASS REPLACE ifindex 3 htb 8000:1 parent 8000:0
  rate 2500000 ceil 2500000 buffer 3750000 cbuffer 3750000 quantum 200000
)");
}

TEST_F(DeviceTest, TheRootClassOfEveryDeviceIsReplaced) {
  auto up = line_direction(false, kTwentyMbit);
  auto down = line_direction(true, kTwentyMbit);
  ifb().update_root_leaf(down);
  imq(true).update_root_leaf(down);
  imq(false).update_root_leaf(up);
  EXPECT_EQ(kernel.summaries(), R"(RTM_NEWTCLASS REPLACE ifindex 7 htb 8000:1 parent 8000:0
RTM_NEWTCLASS REPLACE ifindex 9 htb 8000:1 parent 8000:0
RTM_NEWTCLASS REPLACE ifindex 9 htb 8000:8001 parent 8000:0
)");
}

TEST_F(DeviceTest, AChangeBeginsWithTheRootClass) {
  constexpr auto kDownload = quenby::Direction::download;
  quenby::DeviceChange change;
  change.root = quenby::root_class(quenby::HandleScheme::mark, kTwentyMbit, 0);
  const auto added = quenby::as_given(direction(true, 5, kTenMbit));
  change.branches.push_back(
      {std::nullopt, quenby::tariff_branch(quenby::mark_side(kDownload), added)});
  ifb().change(change);
  EXPECT_EQ(kernel.summaries(), R"(RTM_NEWTCLASS REPLACE ifindex 7 htb 8000:1 parent 8000:0
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:5 parent 8000:1
)");
}

TEST_F(DeviceTest, ALineWithoutSpeedHasNoRootToReplace) {
  auto root = line_direction(false, -2);
  eth().update_root_leaf(root);
  EXPECT_EQ(kernel.requests(), "");
}

TEST_F(BareRouterTest, AMissingDeviceHasNoRootToReplace) {
  auto up = line_direction(false, kTwentyMbit);
  auto down = line_direction(true, kTwentyMbit);
  eth().update_root_leaf(up);
  ifb().update_root_leaf(down);
  imq(true).update_root_leaf(down);
  EXPECT_EQ(kernel.requests(), "");
}

// A class that is missing is no success here, unlike where it is to be deleted.
TEST_F(DeviceTest, ARootThatCannotBeReplacedEndsTheRun) {
  quenby::HtbEthIntf& device = eth();
  auto root = line_direction(false, kTwentyMbit);
  kernel.refuse(RTM_NEWTCLASS, ENOENT);
  EXPECT_EXIT(device.update_root_leaf(root), ExitedWithCode(1),
              "^Error: eth1 failed to add 1 cls\\(Object not found\\)\n$");
}

TEST_F(DeviceTest, TheErrorNamesTheImqUploadsRootByItsMappedNumber) {
  quenby::HtbImqIntf& device = imq(false);
  auto root = line_direction(false, kTwentyMbit);
  kernel.refuse(RTM_NEWTCLASS, EINVAL);
  EXPECT_EXIT(device.update_root_leaf(root), ExitedWithCode(1),
              "^Error: imq0 failed to add 32769 cls\\(Invalid input data or parameter\\)\n$");
}

TEST_F(DeviceTest, ARefusedRaiseOfTheRootBurstEndsTheRun) {
  quenby::HtbIfbIntf& device = ifb();
  kernel.refuse(RTM_NEWTCLASS, EBUSY);
  EXPECT_EXIT(device.update_root_leaf_burst(line_direction(true, kTenMbit), 375'000),
              ExitedWithCode(1), "^Error: ifb_ingr failed to add 1 cls\\(Object busy\\)\n$");
}

}  // namespace
}  // namespace golden
