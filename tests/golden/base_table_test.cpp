#include <linux/rtnetlink.h>

#include <cerrno>

#include "tests/golden/device_test.h"

// The hash tables of the IMQ device's address tree, and the filter that leads into the first one.
namespace golden {
namespace {

using testing::ExitedWithCode;

TEST_F(DeviceTest, TheBaseTableOfTheDownload) {
  imq(true).create_base_ht(line(kTenMbit, kTenMbit), {});
  EXPECT_EQ(kernel.requests(), R"(RTM_NEWTFILTER REQUEST|ACK|CREATE
  family 0 ifindex 9
  handle table 2 bucket 0 node 0
  parent 8000:0
  info prio 1 protocol ip
  TCA_KIND "u32"
  TCA_OPTIONS
    TCA_U32_DIVISOR 16
RTM_NEWTFILTER REQUEST|ACK|CREATE
  family 0 ifindex 9
  handle none
  parent 8000:0
  info prio 1 protocol ip
  TCA_KIND "u32"
  TCA_OPTIONS
    TCA_U32_LINK table 2 bucket 0 node 0
    TCA_U32_SEL
      flags 0
      hash mask ff00 at 16
      key 0/0 at 16 offmask 0
)");
}

TEST_F(DeviceTest, TheBaseTableOfTheUpload) {
  imq(false).create_base_ht(line(kTenMbit, kTenMbit), {});
  EXPECT_EQ(kernel.values(),
            R"(RTM_NEWTFILTER CREATE ifindex 9 u32 table 19 bucket 0 node 0 parent 8000:0 prio 1
  DIVISOR 16
RTM_NEWTFILTER CREATE ifindex 9 u32 parent 8000:0 prio 1
  LINK table 19 bucket 0 node 0 flags 0 hash mask ff00 at 12 key 0/0 at 12 offmask 0
)");
}

TEST_F(DeviceTest, ATableThatExistsIsToleratedOnRequest) {
  quenby::HtbImqIntf& device = imq(true);
  kernel.refuse(RTM_NEWTFILTER, EINVAL);
  device.add_ht({5, 256}, 1, true);
  EXPECT_EQ(kernel.summaries(),
            "RTM_NEWTFILTER CREATE ifindex 9 u32 table 5 bucket 0 node 0 parent 8000:0 prio 1\n");
}

TEST_F(DeviceTest, ARefusedTableEndsTheRun) {
  quenby::HtbImqIntf& device = imq(true);
  kernel.refuse(RTM_NEWTFILTER, EINVAL);
  EXPECT_EXIT(device.add_ht({5, 256}, 1, false), ExitedWithCode(1),
              "^Error: imq0 failed to add ht cls\\(Invalid input data or parameter\\)\n$");
}

TEST_F(DeviceTest, NoOtherRefusalOfATableIsTolerated) {
  quenby::HtbImqIntf& device = imq(true);
  kernel.refuse(RTM_NEWTFILTER, ENOENT);
  EXPECT_EXIT(device.add_ht({5, 256}, 1, true), ExitedWithCode(1),
              "^Error: imq0 failed to add ht cls\\(Object not found\\)\n$");
}

}  // namespace
}  // namespace golden
