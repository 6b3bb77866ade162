#include <linux/rtnetlink.h>

#include <cerrno>
#include <csignal>
#include <map>

#include "tests/golden/device_test.h"

// The leaf qdiscs of tariffs.
namespace golden {
namespace {

using quenby::htb_action;
using testing::ExitedWithCode;
using testing::KilledBySignal;

// Bytes per second of so many kbit/s.
constexpr std::int64_t kbps(std::int64_t kbit) { return kbit * 125; }

TEST_F(DeviceTest, APfifoLeaf) {
  eth().create_qdisc(direction(false, 5, kTenMbit, quenby::kQdiscPfifo));
  EXPECT_EQ(kernel.values(), R"(RTM_NEWQDISC CREATE ifindex 3 pfifo 8005:0 parent 8000:5
  limit 11000
)");
}

TEST_F(DeviceTest, APfifoLeafOfABlockedTariff) {
  ifb().create_qdisc(direction(true, 5, 0, quenby::kQdiscPfifo));
  EXPECT_EQ(kernel.requests(), R"(RTM_NEWQDISC REQUEST|ACK|CREATE
  family 0 ifindex 7
  handle 8005:0
  parent 8000:5
  info 0
  TCA_KIND "pfifo"
  TCA_OPTIONS
    limit 0
)");
}

TEST_F(DeviceTest, AnSfqLeaf) {
  ifb().create_qdisc(direction(true, 5, kTenMbit, quenby::kQdiscSfq));
  EXPECT_EQ(kernel.values(), R"(RTM_NEWQDISC CREATE ifindex 7 sfq 8005:0 parent 8000:5
  quantum 0 perturb 0 limit 127 divisor 0 flows 0
)");
}

TEST_F(DeviceTest, AnSfqLeafOfABlockedTariff) {
  eth().create_qdisc(direction(false, 5, 0, quenby::kQdiscSfq));
  EXPECT_EQ(kernel.requests(), R"(RTM_NEWQDISC REQUEST|ACK|CREATE
  family 0 ifindex 3
  handle 8005:0
  parent 8000:5
  info 0
  TCA_KIND "sfq"
  TCA_OPTIONS
    quantum 0 perturb 0
    limit 0
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

struct FqCodelCase {
  std::int64_t speed;
  const char* options;
};

constexpr const char* kSlow = R"(    TCA_FQ_CODEL_LIMIT 600
    TCA_FQ_CODEL_ECN 0
    TCA_FQ_CODEL_QUANTUM 300
)";
constexpr const char* kMedium = R"(    TCA_FQ_CODEL_LIMIT 800
    TCA_FQ_CODEL_ECN 0
    TCA_FQ_CODEL_QUANTUM 300
)";
constexpr const char* kFast = R"(    TCA_FQ_CODEL_LIMIT 1200
    TCA_FQ_CODEL_ECN 0
    TCA_FQ_CODEL_QUANTUM 1514
)";
constexpr const char* kVeryFast = R"(    TCA_FQ_CODEL_LIMIT 10240
    TCA_FQ_CODEL_ECN 0
    TCA_FQ_CODEL_QUANTUM 1514
)";
constexpr const char* kBlocked = R"(    TCA_FQ_CODEL_LIMIT 0
    TCA_FQ_CODEL_ECN 0
    TCA_FQ_CODEL_QUANTUM 300
)";
constexpr const char* kNoQuantum = R"(    TCA_FQ_CODEL_LIMIT 0
    TCA_FQ_CODEL_ECN 0
)";

TEST_F(DeviceTest, FqCodelParametersFollowTheSpeed) {
  const std::vector<FqCodelCase> cases = {{kbps(1), kSlow},
                                          {kbps(10'000), kSlow},
                                          {kbps(10'001), kMedium},
                                          {kbps(100'000), kMedium},
                                          {kbps(100'001), kFast},
                                          {kbps(1'000'000), kFast},
                                          {kbps(1'000'001), kVeryFast},
                                          {kbps(4'294'967'296), kVeryFast},
                                          {kbps(4'294'967'297), kVeryFast},
                                          {0, kBlocked},
                                          {-1, kNoQuantum},
                                          {-2, kBlocked}};
  quenby::HtbEthIntf& device = eth();
  for (const FqCodelCase& c : cases) {
    device.create_qdisc(direction(false, 4, c.speed, quenby::kQdiscFqCodel));
    EXPECT_EQ(kernel.requests(), std::string(R"(RTM_NEWQDISC REQUEST|ACK|CREATE
  family 0 ifindex 3
  handle 8004:0
  parent 8000:4
  info 0
  TCA_KIND "fq_codel"
  TCA_OPTIONS
)") + c.options)
        << c.speed << " bytes/s";
  }
}

TEST_F(DeviceTest, TheLeafsMajorTakesTheWholeClassNumber) {
  eth().create_qdisc(direction(false, 0x4005, kTenMbit, quenby::kQdiscPfifo));
  EXPECT_EQ(kernel.summaries(), "RTM_NEWQDISC CREATE ifindex 3 pfifo c005:0 parent 8000:5\n");
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
  eth().delete_qdisc(direction(false, 5, kTenMbit, quenby::kQdiscPfifo));
  ifb().delete_qdisc(direction(true, 6, kTenMbit, quenby::kQdiscSfq));
  imq(true).delete_qdisc(direction(true, 7, kTenMbit, quenby::kQdiscFqCodel));
  EXPECT_EQ(kernel.requests(), R"(RTM_DELQDISC REQUEST|ACK
  family 0 ifindex 3
  handle 8005:0
  parent 8000:5
  info 0
  TCA_KIND "pfifo"
RTM_DELQDISC REQUEST|ACK
  family 0 ifindex 7
  handle 8006:0
  parent 8000:6
  info 0
  TCA_KIND "sfq"
RTM_DELQDISC REQUEST|ACK
  family 0 ifindex 9
  handle 8007:0
  parent 8000:7
  info 0
  TCA_KIND "fq_codel"
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

// sfq has no change operation, and none turns one kind into another: EINVAL.
TEST_F(DeviceTest, ALeafThatStandsAlreadyIsDeletedAndAddedAgain) {
  kernel.refuse(RTM_NEWQDISC, EINVAL);
  ifb().create_qdisc(direction(true, 5, kTenMbit, quenby::kQdiscSfq));
  // Without a kind, as that of another would be refused.
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
RTM_DELQDISC REQUEST|ACK
  family 0 ifindex 7
  handle 8005:0
  parent 8000:5
  info 0
RTM_NEWQDISC REQUEST|ACK|CREATE
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

TEST_F(DeviceTest, EveryKindOfLeafIsAddedAgain) {
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

TEST_F(DeviceTest, ALeafIsNeverReplacedInPlace) {
  quenby::HtbIfbIntf& device = ifb();
  const auto t = [](int kind) { return direction(true, 5, kTenMbit, kind); };
  EXPECT_EXIT(device.tariff_qdisc_op(t(quenby::kQdiscPfifo), htb_action::update), ExitedWithCode(1),
              "^Error: ifb_ingr: wrong pfifo action update\n$");
  EXPECT_EXIT(device.tariff_qdisc_op(t(quenby::kQdiscSfq), kNoAction), ExitedWithCode(1),
              "^Error: ifb_ingr: wrong sfq action unknown\\(0\\)\n$");
  EXPECT_EXIT(device.def_qdisc_op(line_direction(true, kTenMbit), htb_action::update),
              ExitedWithCode(1), "^Error: ifb_ingr: wrong fq_codel action update\n$");
}

TEST_F(DeviceTest, AMissingSetupThrows) {
  EXPECT_THROW(eth().qdisc_op("pfifo", 0x80050000, 0x80000005, line_direction(false, kTenMbit),
                              htb_action::create, nullptr),
               std::bad_function_call);
  EXPECT_EQ(kernel.requests(), "");
}

TEST_F(DeviceTest, ALeafOfTheOtherDirectionAborts) {
  const auto aborted = KilledBySignal(SIGABRT);
  const auto up = line_direction(false, kTenMbit);
  const auto down = line_direction(true, kTenMbit);
  quenby::HtbEthIntf& wan = eth();
  quenby::HtbIfbIntf& incoming = ifb();
  quenby::HtbImqIntf& shared = imq(false);
  constexpr auto kCreate = htb_action::create;

  const std::string wrong_tariff = "kavo-tc-htb.*`tariff\\.download\\(\\) == ingress\\(\\)' failed";
  EXPECT_EXIT(wan.create_qdisc(direction(true, 5, 1)), aborted, wrong_tariff);
  EXPECT_EXIT(wan.delete_qdisc(direction(true, 5, 1)), aborted, wrong_tariff);
  EXPECT_EXIT(shared.tariff_qdisc_op(direction(true, 5, 1), kCreate), aborted, wrong_tariff);
  EXPECT_EXIT(wan.def_qdisc_op(down, kCreate), aborted, "kavo-tc-htb.*`!def\\.download\\(\\)' f");
  EXPECT_EXIT(wan.def_tar_qdisc_op(down, kCreate), aborted,
              "kavo-tc-htb.*`!def\\.download\\(\\)' failed");
  EXPECT_EXIT(incoming.def_qdisc_op(up, kCreate), aborted,
              "kavo-tc-htb.*`def\\.download\\(\\)' failed");
  EXPECT_EXIT(incoming.def_tar_qdisc_op(up, kCreate), aborted,
              "kavo-tc-htb.*`def\\.download\\(\\)' failed");
  EXPECT_EXIT(shared.def_qdisc_op(down, kCreate), aborted,
              "kavo-tc-htb.*`def\\.download\\(\\) == ingress\\(\\)' failed");
}

}  // namespace
}  // namespace golden
