#include <linux/rtnetlink.h>

#include <cerrno>

#include "tests/golden/device_test.h"

// Changing the leaves of devices that classify by mark: what has a new record is deleted and made
// again, and the one classifier stays as it is.
namespace golden {
namespace {

using quenby::kQdiscFqCodel;
using quenby::kQdiscNone;
using quenby::kQdiscPfifo;
using quenby::kQdiscSfq;
using quenby::TariffSet;

const quenby::GlobalSettings kLine = line(kTenMbit, kTenMbit);

// The only tariff of a set, with class number 5.
TariffSet gold(std::int64_t speed, int qdisc) {
  return tariffs({tariff("gold", 5, speed, {"10.0.1.5"}, qdisc)});
}

// The burst of 240 ms at 200,000 bytes/s is 48,000 bytes, which take 3,750,000 ticks of 64 ns.
TEST_F(DeviceTest, AChangedRateIsANewClassUnderANewLeaf) {
  eth().update_leaves(kLine, gold(100'000, kQdiscPfifo), gold(200'000, kQdiscPfifo), true);
  EXPECT_EQ(kernel.values(), R"(RTM_DELQDISC ifindex 3 pfifo 8005:0 parent 8000:5
RTM_DELTCLASS ifindex 3 8000:5 parent 8000:1
RTM_NEWTCLASS CREATE ifindex 3 htb 8000:5 parent 8000:1
  rate 200000 ceil 200000 buffer 3750000 cbuffer 3750000 quantum 20000
RTM_NEWQDISC CREATE ifindex 3 pfifo 8005:0 parent 8000:5
  limit 11000
)");
}

// 1,250,000 bytes/s are 10,000 kbit/s, the fastest of the shortest queues.
TEST_F(DeviceTest, AChangedLeafKindIsDeletedAsTheOldAndMadeAsTheNew) {
  ifb().update_leaves(kLine, gold(kTenMbit, kQdiscSfq), gold(kTenMbit, kQdiscFqCodel), true);
  EXPECT_EQ(kernel.values(), R"(RTM_DELQDISC ifindex 7 sfq 8005:0 parent 8000:5
RTM_DELTCLASS ifindex 7 8000:5 parent 8000:1
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:5 parent 8000:1
  rate 1250000 ceil 1250000 buffer 3750000 cbuffer 3750000 quantum 125000
RTM_NEWQDISC CREATE ifindex 7 fq_codel 8005:0 parent 8000:5
  LIMIT 600 ECN 0 QUANTUM 300
)");
}

TEST_F(DeviceTest, ALeafThatComesOrGoesIsMadeOrDeletedAlone) {
  eth().update_leaves(kLine, gold(kTenMbit, kQdiscSfq), gold(kTenMbit, kQdiscNone), true);
  EXPECT_EQ(kernel.summaries(), R"(RTM_DELQDISC ifindex 3 sfq 8005:0 parent 8000:5
RTM_DELTCLASS ifindex 3 8000:5 parent 8000:1
RTM_NEWTCLASS CREATE ifindex 3 htb 8000:5 parent 8000:1
)");
  eth().update_leaves(kLine, gold(kTenMbit, kQdiscNone), gold(kTenMbit, kQdiscSfq), true);
  EXPECT_EQ(kernel.summaries(), R"(RTM_DELTCLASS ifindex 3 8000:5 parent 8000:1
RTM_NEWTCLASS CREATE ifindex 3 htb 8000:5 parent 8000:1
RTM_NEWQDISC CREATE ifindex 3 sfq 8005:0 parent 8000:5
)");
}

TEST_F(DeviceTest, OnlyTariffsWithAddressesHaveLeavesToChange) {
  const auto silent = tariffs({tariff("gold", 5, kTenMbit, {}, kQdiscSfq)});
  eth().update_leaves(kLine, silent, gold(kTenMbit, kQdiscSfq), true);
  EXPECT_EQ(kernel.summaries(), R"(RTM_NEWTCLASS CREATE ifindex 3 htb 8000:5 parent 8000:1
RTM_NEWQDISC CREATE ifindex 3 sfq 8005:0 parent 8000:5
)");
  eth().update_leaves(kLine, gold(kTenMbit, kQdiscSfq), silent, true);
  EXPECT_EQ(kernel.summaries(), R"(RTM_DELQDISC ifindex 3 sfq 8005:0 parent 8000:5
RTM_DELTCLASS ifindex 3 8000:5 parent 8000:1
)");
}

TEST_F(BareRouterTest, AnIfbDeviceThatOutlivedTheWanDeviceOnlyLosesLeaves) {
  kernel.has_link("ifb_ingr", kIfbIndex);
  ifb().update_leaves(kLine, gold(1000, kQdiscNone), gold(2000, kQdiscNone), true);
  EXPECT_EQ(kernel.summaries(), "RTM_DELTCLASS ifindex 7 8000:5 parent 8000:1\n");
}

TEST_F(DeviceTest, AChangeBeginsWithTheRootClass) {
  constexpr auto kDownload = quenby::Direction::download;
  quenby::DeviceChange change;
  change.root = quenby::root_class(quenby::HandleScheme::mark, 2 * kTenMbit, 0);
  const auto added = quenby::as_given(direction(true, 5, kTenMbit));
  change.branches.push_back(
      {std::nullopt, quenby::tariff_branch(quenby::mark_side(kDownload), added)});
  ifb().change(change);
  EXPECT_EQ(kernel.summaries(), R"(RTM_NEWTCLASS REPLACE ifindex 7 htb 8000:1 parent 8000:0
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:5 parent 8000:1
)");
}

// 310,000 and 375,000 bytes at 10 Mbit/s, whose own 240 ms are 300,000.
TEST_F(DeviceTest, TheRootClassCoversTheLargestBurstAfterTheChange) {
  auto small = tariff("a", 4, kTenMbit, {"10.0.1.4"});
  small.download.burst_size = 310'000;
  auto large = tariff("b", 5, kTenMbit, {"10.0.1.5"});
  large.download.burst_size = 375'000;
  ifb().update_leaves(kLine, {}, tariffs({large, small}), true);
  const std::string requests = kernel.values();
  EXPECT_EQ(requests.substr(requests.rfind("RTM_")),
            R"(RTM_NEWTCLASS REPLACE ifindex 7 htb 8000:1 parent 8000:0
  rate 1250000 ceil 1250000 buffer 4687500 cbuffer 3750000 quantum 125000
)");
}

TEST_F(DeviceTest, ASmallBurstLeavesTheRootClassAlone) {
  auto small = tariff("a", 4, kTenMbit, {"10.0.1.4"});
  small.upload.burst_size = 300'000;
  eth().update_leaves(kLine, {}, tariffs({small}), true);
  EXPECT_EQ(kernel.summaries(), "RTM_NEWTCLASS CREATE ifindex 3 htb 8000:4 parent 8000:1\n");
}

TEST_F(DeviceTest, AClassNumberBeyond14BitsIsCutForTheClassAndNotForTheLeaf) {
  eth().delete_fw_leaf(direction(false, 0x4005, kTenMbit, kQdiscPfifo), true, {1});
  EXPECT_EQ(kernel.summaries(), R"(RTM_DELQDISC ifindex 3 pfifo c005:0 parent 8000:5
RTM_DELTCLASS ifindex 3 8000:5 parent 8000:1
)");
}

TEST_F(DeviceTest, LeavesAndClassesThatAreGoneDoNotStopTheChange) {
  for (const int error : {ENOENT, EINVAL}) {
    kernel.refuse(RTM_DELQDISC, error);
    kernel.refuse(RTM_DELTCLASS, ENOENT);
    eth().update_leaves(kLine, gold(1000, kQdiscSfq), gold(2000, kQdiscNone), true);
    EXPECT_EQ(kernel.summaries(), R"(RTM_DELQDISC ifindex 3 sfq 8005:0 parent 8000:5
RTM_DELTCLASS ifindex 3 8000:5 parent 8000:1
RTM_NEWTCLASS CREATE ifindex 3 htb 8000:5 parent 8000:1
)") << error;
  }
}

}  // namespace
}  // namespace golden
