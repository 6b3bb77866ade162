#include <linux/rtnetlink.h>

#include <cerrno>
#include <map>

#include "tests/golden/device_test.h"

// The leaf qdiscs of tariffs.
namespace golden {
namespace {

using quenby::htb_action;
using testing::ExitedWithCode;

TEST_F(DeviceTest, APfifoLeaf) {
  eth().create_qdisc(direction(false, 5, kTenMbit, quenby::kQdiscPfifo));
  EXPECT_EQ(kernel.requests(), R"(RTM_NEWQDISC REQUEST|ACK|CREATE
  family 0 ifindex 3
  handle 8005:0
  parent 8000:5
  info 0
  TCA_KIND "pfifo"
  TCA_OPTIONS
    limit 11000
)");
}

TEST_F(DeviceTest, AnSfqLeaf) {
  ifb().create_qdisc(direction(true, 5, kTenMbit, quenby::kQdiscSfq));
  EXPECT_EQ(kernel.requests(), R"(RTM_NEWQDISC REQUEST|ACK|CREATE
  family 0 ifindex 7
  handle 8005:0
  parent 8000:5
  info 0
  TCA_KIND "sfq"
  TCA_OPTIONS
    quantum 0 perturb 0
    limit 127
    divisor 0 flows 0
)");
}

TEST_F(DeviceTest, AnFqCodelLeafOfTheImqUpload) {
  imq(false).create_qdisc(direction(false, 5, kTenMbit, quenby::kQdiscFqCodel));
  // Major 0x8000 + 20000 + 5.
  EXPECT_EQ(kernel.values(), R"(RTM_NEWQDISC CREATE ifindex 9 fq_codel ce25:0 parent 8000:8005
  LIMIT 600 ECN 0 QUANTUM 300
)");
}

TEST_F(DeviceTest, AnFqCodelLeafOfAnEmptySpeedNamesNoQuantum) {
  eth().create_qdisc(direction(false, 4, -1, quenby::kQdiscFqCodel));
  EXPECT_EQ(kernel.values(), R"(RTM_NEWQDISC CREATE ifindex 3 fq_codel 8004:0 parent 8000:4
  LIMIT 0 ECN 0
)");
}

TEST_F(DeviceTest, UnknownKindsGetNoLeaf) {
  for (const int kind : {0, 4, -1}) {
    eth().create_qdisc(direction(false, 5, kTenMbit, kind));
    eth().delete_qdisc(direction(false, 5, kTenMbit, kind));
    ifb().tariff_qdisc_op(direction(true, 5, kTenMbit, kind), htb_action::update);
  }
  EXPECT_EQ(kernel.requests(), "");
}

TEST_F(DeviceTest, DeletesALeafWithoutItsParameters) {
  ifb().delete_qdisc(direction(true, 6, kTenMbit, quenby::kQdiscSfq));
  imq(true).delete_qdisc(direction(true, 7, kTenMbit, quenby::kQdiscFqCodel));
  EXPECT_EQ(kernel.values(), R"(RTM_DELQDISC ifindex 7 sfq 8006:0 parent 8000:6
RTM_DELQDISC ifindex 9 fq_codel 8007:0 parent 8000:7
)");
}

TEST_F(DeviceTest, DeletingALeafThatIsGoneSucceeds) {
  for (const int error : {ENOENT, EINVAL}) {
    kernel.refuse(RTM_DELQDISC, error);
    eth().delete_qdisc(direction(false, 5, kTenMbit, quenby::kQdiscPfifo));
    EXPECT_EQ(kernel.summaries(), "RTM_DELQDISC ifindex 3 pfifo 8005:0 parent 8000:5\n");
  }
}

TEST_F(BareRouterTest, NothingIsDeletedOfADeviceThatWasNotFound) {
  for (const int kind : {quenby::kQdiscPfifo, quenby::kQdiscSfq, quenby::kQdiscFqCodel}) {
    eth().delete_qdisc(direction(false, 5, kTenMbit, kind));
    ifb().delete_qdisc(direction(true, 5, kTenMbit, kind));
  }
  ifb().def_qdisc_op(direction(true, 5, kTenMbit), htb_action::remove);
  eth().ingress_op(line(kTenMbit, kTenMbit), htb_action::remove);
  EXPECT_EQ(kernel.requests(), "");
}

TEST_F(DeviceTest, RefusedLeavesEndTheRun) {
  quenby::HtbEthIntf& device = eth();
  kernel.refuse(RTM_DELQDISC, EPERM);
  kernel.refuse(RTM_NEWQDISC, ENOENT);
  const auto t = direction(false, 5, kTenMbit, quenby::kQdiscFqCodel);
  EXPECT_EXIT(device.delete_qdisc(t), ExitedWithCode(1),
              "^Error: eth1 failed to delete fq_codel qdisc\\(Operation not permitted\\)\n$");
  EXPECT_EXIT(device.create_qdisc(t), ExitedWithCode(1),
              "^Error: eth1 failed to add fq_codel qdisc\\(Object not found\\)\n$");
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

// Nothing that stands in the way is deleted for another reason: the message is of the one request.
TEST_F(DeviceTest, ALeafThatIsRefusedOtherwiseIsNotAddedAgain) {
  quenby::HtbEthIntf& device = eth();
  const auto create = [&](int error) {
    kernel.refuse(RTM_NEWQDISC, error);
    device.create_qdisc(direction(false, 5, kTenMbit, quenby::kQdiscSfq));
  };
  EXPECT_EXIT(create(EEXIST), ExitedWithCode(1), "failed to add sfq qdisc\\(Object exists\\)\n$");
  EXPECT_EXIT(create(EPERM), ExitedWithCode(1), "sfq qdisc\\(Operation not permitted\\)\n$");
  EXPECT_EXIT(create(ENOMEM), ExitedWithCode(1), "sfq qdisc\\(Out of memory\\)\n$");
}

// An ingress or root qdisc of another kind is somebody else's.
TEST_F(DeviceTest, OnlyALeafIsDeletedToBeAddedAgain) {
  quenby::HtbEthIntf& device = eth();
  kernel.refuse(RTM_NEWQDISC, EINVAL);
  const auto g = line(kTenMbit, kTenMbit);
  EXPECT_EXIT(device.ingress_op(g, htb_action::create), ExitedWithCode(1),
              "failed to add ingress qdisc\\(Invalid input data or parameter\\)\n$");
  EXPECT_EXIT(device.global_fq_codel_op(g, htb_action::create), ExitedWithCode(1),
              "failed to add fq_codel qdisc\\(Invalid input data or parameter\\)\n$");
}

TEST_F(DeviceTest, AMissingSetupThrows) {
  EXPECT_THROW(eth().qdisc_op("pfifo", 0x80050000, 0x80000005, line_direction(false, kTenMbit),
                              htb_action::create, nullptr),
               std::bad_function_call);
  EXPECT_EQ(kernel.requests(), "");
}

}  // namespace
}  // namespace golden
