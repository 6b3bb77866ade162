#include <linux/rtnetlink.h>

#include <cerrno>

#include "tests/golden/device_test.h"

// Default leaves, the plain fair queue and the ingress qdisc of the WAN device.
namespace golden {
namespace {

using quenby::htb_action;

TEST_F(DeviceTest, TheDefaultClassWithItsLeaf) {
  eth().create_def_leaf(line_direction(false, 12'500'000));
  EXPECT_EQ(kernel.values(), R"(RTM_NEWTCLASS CREATE ifindex 3 htb 8000:2 parent 8000:1
  rate 8 ceil 12500000 buffer 15625000 cbuffer 3750000 quantum 1000
RTM_NEWQDISC CREATE ifindex 3 fq_codel 8002:0 parent 8000:2
  LIMIT 800 ECN 0 QUANTUM 300
)");
}

TEST_F(DeviceTest, TheDefaultTariffsClassWithItsLeaf) {
  ifb().create_def_tar_leaf(default_direction(true, kTenMbit, 0));
  EXPECT_EQ(kernel.values(), R"(RTM_NEWTCLASS CREATE ifindex 7 htb 8000:3 parent 8000:1
  rate 8 ceil 1250000 buffer 15625000 cbuffer 3750000 quantum 1000
RTM_NEWQDISC CREATE ifindex 7 fq_codel 8003:0 parent 8000:3
  LIMIT 600 ECN 0 QUANTUM 300
)");
}

TEST_F(DeviceTest, DefaultLeavesOfEveryDevice) {
  eth().create_def_tar_leaf(default_direction(false, kTenMbit, kTenMbit));
  ifb().create_def_leaf(line_direction(true, kTenMbit));
  imq(true).create_def_leaf(default_direction(true, kTenMbit, kTenMbit));
  EXPECT_EQ(kernel.summaries(), R"(RTM_NEWTCLASS CREATE ifindex 3 htb 8000:3 parent 8000:1
RTM_NEWQDISC CREATE ifindex 3 fq_codel 8003:0 parent 8000:3
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:2 parent 8000:1
RTM_NEWQDISC CREATE ifindex 7 fq_codel 8002:0 parent 8000:2
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:2 parent 8000:1
RTM_NEWQDISC CREATE ifindex 9 fq_codel 8002:0 parent 8000:2
)");
}

TEST_F(DeviceTest, TheImqUploadHasNoDefaultLeaf) {
  imq(false).def_qdisc_op(default_direction(false, kTenMbit, kTenMbit), htb_action::create);
  imq(false).def_qdisc_op(default_direction(false, kTenMbit, kTenMbit), htb_action::remove);
  EXPECT_EQ(kernel.requests(), "");
}

TEST_F(DeviceTest, DefaultLeavesAreDeletedToo) {
  eth().def_qdisc_op(line_direction(false, kTenMbit), htb_action::remove);
  ifb().def_tar_qdisc_op(default_direction(true, kTenMbit, 0), htb_action::remove);
  EXPECT_EQ(kernel.summaries(), R"(RTM_DELQDISC ifindex 3 fq_codel 8002:0 parent 8000:2
RTM_DELQDISC ifindex 7 fq_codel 8003:0 parent 8000:3
)");
}

TEST_F(DeviceTest, APlainFairQueueAsTheRoot) {
  eth().global_fq_codel_op(line(kTenMbit, 0), htb_action::create);
  EXPECT_EQ(kernel.requests(), R"(RTM_NEWQDISC REQUEST|ACK|CREATE
  family 0 ifindex 3
  handle 1:0
  parent root
  info 0
  TCA_KIND "fq_codel"
  TCA_OPTIONS
    TCA_FQ_CODEL_LIMIT 0
    TCA_FQ_CODEL_ECN 0
    TCA_FQ_CODEL_QUANTUM 300
)");
}

TEST_F(DeviceTest, TheIngressQdisc) {
  eth().ingress_op(line(kTenMbit, kTenMbit), htb_action::create);
  eth().ingress_op(line(kTenMbit, kTenMbit), htb_action::remove);
  EXPECT_EQ(kernel.requests(), R"(RTM_NEWQDISC REQUEST|ACK|CREATE
  family 0 ifindex 3
  handle ffff:0
  parent ingress
  info 0
  TCA_KIND "ingress"
RTM_DELQDISC REQUEST|ACK
  family 0 ifindex 3
  handle ffff:0
  parent ingress
  info 0
  TCA_KIND "ingress"
)");
}

TEST_F(DeviceTest, AnIngressQdiscThatIsNotThereNeedsNoDelete) {
  for (const int error : {ENOENT, EINVAL}) {
    kernel.refuse(RTM_DELQDISC, error);
    eth().ingress_op(line(kTenMbit, kTenMbit), htb_action::remove);
  }
  EXPECT_EQ(kernel.summaries(), R"(RTM_DELQDISC ifindex 3 ingress ffff:0 parent ingress
RTM_DELQDISC ifindex 3 ingress ffff:0 parent ingress
)");
}

}  // namespace
}  // namespace golden
