#include <linux/rtnetlink.h>

#include <cerrno>
#include <map>

#include "tests/golden/device_test.h"

// The leaf qdiscs, the plain fair queue and the ingress qdisc of the WAN device.
namespace golden {
namespace {

using quenby::htb_action;
using testing::ExitedWithCode;

TEST_F(DeviceTest, LeavesOfTariffs) {
  eth().create_qdisc(direction(false, 5, kTenMbit, quenby::kQdiscPfifo));
  ifb().create_qdisc(direction(true, 5, kTenMbit, quenby::kQdiscSfq));
  imq(false).create_qdisc(direction(false, 5, kTenMbit, quenby::kQdiscFqCodel));
  // An empty speed names no quantum.
  eth().create_qdisc(direction(false, 4, -1, quenby::kQdiscFqCodel));
  // The major of the IMQ upload's is 0x8000 + 20000 + 5.
  EXPECT_EQ(kernel.values(), R"(RTM_NEWQDISC CREATE ifindex 3 pfifo 8005:0 parent 8000:5
  limit 11000
RTM_NEWQDISC CREATE ifindex 7 sfq 8005:0 parent 8000:5
  quantum 0 perturb 0 limit 127 divisor 0 flows 0
RTM_NEWQDISC CREATE ifindex 9 fq_codel ce25:0 parent 8000:8005
  LIMIT 600 ECN 0 QUANTUM 300
RTM_NEWQDISC CREATE ifindex 3 fq_codel 8004:0 parent 8000:4
  LIMIT 0 ECN 0
)");
}

TEST_F(DeviceTest, DefaultClassesWithTheirLeaves) {
  eth().create_def_leaf(line_direction(false, 12'500'000));
  ifb().create_def_tar_leaf(default_direction(true, kTenMbit, 0));
  EXPECT_EQ(kernel.values(), R"(RTM_NEWTCLASS CREATE ifindex 3 htb 8000:2 parent 8000:1
  rate 8 ceil 12500000 buffer 15625000 cbuffer 3750000 quantum 1000
RTM_NEWQDISC CREATE ifindex 3 fq_codel 8002:0 parent 8000:2
  LIMIT 800 ECN 0 QUANTUM 300
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:3 parent 8000:1
  rate 8 ceil 1250000 buffer 15625000 cbuffer 3750000 quantum 1000
RTM_NEWQDISC CREATE ifindex 7 fq_codel 8003:0 parent 8000:3
  LIMIT 600 ECN 0 QUANTUM 300
)");
  eth().create_def_tar_leaf(default_direction(false, kTenMbit, kTenMbit));
  ifb().create_def_leaf(line_direction(true, kTenMbit));
  imq(true).create_def_leaf(default_direction(true, kTenMbit, kTenMbit));
  eth().def_qdisc_op(line_direction(false, kTenMbit), htb_action::remove);
  ifb().def_tar_qdisc_op(default_direction(true, kTenMbit, 0), htb_action::remove);
  EXPECT_EQ(kernel.summaries(), R"(RTM_NEWTCLASS CREATE ifindex 3 htb 8000:3 parent 8000:1
RTM_NEWQDISC CREATE ifindex 3 fq_codel 8003:0 parent 8000:3
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:2 parent 8000:1
RTM_NEWQDISC CREATE ifindex 7 fq_codel 8002:0 parent 8000:2
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:2 parent 8000:1
RTM_NEWQDISC CREATE ifindex 9 fq_codel 8002:0 parent 8000:2
RTM_DELQDISC ifindex 3 fq_codel 8002:0 parent 8000:2
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

TEST_F(DeviceTest, DeletesALeafWithoutItsParameters) {
  ifb().delete_qdisc(direction(true, 6, kTenMbit, quenby::kQdiscSfq));
  imq(true).delete_qdisc(direction(true, 7, kTenMbit, quenby::kQdiscFqCodel));
  EXPECT_EQ(kernel.values(), R"(RTM_DELQDISC ifindex 7 sfq 8006:0 parent 8000:6
RTM_DELQDISC ifindex 9 fq_codel 8007:0 parent 8000:7
)");
}

TEST_F(DeviceTest, DeletingALeafOrAnIngressQdiscThatIsGoneSucceeds) {
  for (const int error : {ENOENT, EINVAL}) {
    for (int i = 0; i < 2; ++i) kernel.refuse(RTM_DELQDISC, error);
    eth().delete_qdisc(direction(false, 5, kTenMbit, quenby::kQdiscPfifo));
    eth().ingress_op(line(kTenMbit, kTenMbit), htb_action::remove);
    EXPECT_EQ(kernel.summaries(), R"(RTM_DELQDISC ifindex 3 pfifo 8005:0 parent 8000:5
RTM_DELQDISC ifindex 3 ingress ffff:0 parent ingress
)");
  }
}

// sfq has no change operation, and none turns one kind into another: EINVAL. What stands is deleted
// without a kind, as that of another would be refused.
TEST_F(DeviceTest, ALeafThatStandsAlreadyIsDeletedAndAddedAgain) {
  const std::map<std::string, int> kinds = {{"pfifo", quenby::kQdiscPfifo},
                                            {"sfq", quenby::kQdiscSfq},
                                            {"fq_codel", quenby::kQdiscFqCodel}};
  for (const auto& [name, kind] : kinds) {
    kernel.refuse(RTM_NEWQDISC, EINVAL);
    eth().create_qdisc(direction(false, 5, kTenMbit, kind));
    const std::string add = "RTM_NEWQDISC CREATE ifindex 3 " + name + " 8005:0 parent 8000:5\n";
    EXPECT_EQ(kernel.summaries(), add + "RTM_DELQDISC ifindex 3 8005:0 parent 8000:5\n" + add);
  }
  kernel.refuse(RTM_NEWQDISC, EINVAL);
  eth().def_qdisc_op(line_direction(false, kTenMbit), htb_action::create);
  EXPECT_EQ(kernel.summaries(), R"(RTM_NEWQDISC CREATE ifindex 3 fq_codel 8002:0 parent 8000:2
RTM_DELQDISC ifindex 3 8002:0 parent 8000:2
RTM_NEWQDISC CREATE ifindex 3 fq_codel 8002:0 parent 8000:2
)");
}

// What the deletion is answered with does not matter.
TEST_F(DeviceTest, ALeafThatIsRefusedTwiceEndsTheRun) {
  quenby::HtbEthIntf& device = eth();
  for (const int error : {0, EINVAL, ENOENT, EPERM}) {
    const auto create = [&] {
      kernel.refuse(RTM_NEWQDISC, EINVAL);
      kernel.refuse(RTM_DELQDISC, error);
      kernel.refuse(RTM_NEWQDISC, EINVAL);
      device.create_qdisc(direction(false, 5, kTenMbit, quenby::kQdiscSfq));
    };
    EXPECT_EXIT(create(), ExitedWithCode(1),
                "^Error: eth1 failed to add sfq qdisc\\(Invalid input data or parameter\\)\n$");
  }
}

TEST_F(DeviceTest, AMissingSetupThrows) {
  EXPECT_THROW(eth().qdisc_op("pfifo", 0x80050000, 0x80000005, line_direction(false, kTenMbit),
                              htb_action::create, nullptr),
               std::bad_function_call);
  EXPECT_EQ(kernel.requests(), "");
}

}  // namespace
}  // namespace golden
