#include "tc/class_counters.h"

#include <gmock/gmock.h>

#include "tests/golden/device_test.h"

// Reading the counters of all classes of a device, and of all leaves, as values.
namespace golden {
namespace {

using quenby::class_counters;
using quenby::ClassCounters;
using quenby::leaf_drops;
using quenby::LeafDrops;
using testing::ElementsAre;
using testing::Eq;
using testing::ExitedWithCode;
using testing::IsEmpty;

class CountersTest : public DeviceTest {
 protected:
  std::vector<ClassCounters> counters() {
    return class_counters({"eth1", kernel.socket().get(), nullptr, kWanIndex});
  }
  std::optional<ClassCounters> counters_of(std::uint32_t handle) {
    return class_counters({"eth1", kernel.socket().get(), nullptr, kWanIndex}, handle);
  }
  std::vector<std::uint32_t> handles() {
    std::vector<std::uint32_t> found;
    for (const ClassCounters& each : counters()) found.push_back(each.handle);
    return found;
  }
};

TEST_F(CountersTest, TheClassesOfOurRootAreAskedFor) {
  EXPECT_THAT(counters(), IsEmpty());
  EXPECT_EQ(kernel.requests(), R"(RTM_GETTCLASS REQUEST|ACK|DUMP
  family 0 ifindex 3
  handle none
  parent 8000:0
  info 0
)");
}

TEST_F(CountersTest, EachCounterIsReadAndPacketsBeyond32Bits) {
  ListedClass gold = listed_class(kWanIndex, 0x80000005, 0x80000001);
  gold.traffic = {0xffff'ffff'ffff'ffff, 0xffff'ffff};
  gold.queue = {21, 0xffff'fffe, 0x8000'0000, 24, 17};
  kernel.has_class(gold);
  ClassCounters expected{0x80000005,  0xffff'ffff, 0xffff'ffff'ffff'ffff, 0x8000'0000, 17,
                         0xffff'fffe, 21};
  EXPECT_THAT(counters(), ElementsAre(expected));
  gold.packets = expected.packets = 0x1'0000'0007;
  kernel.has_class(gold);
  EXPECT_THAT(counters(), testing::Contains(expected));
}

TEST_F(CountersTest, TheFlowsOfLeavesAreNoClasses) {
  kernel.has_class(listed_class(kWanIndex, 0x80000004, 0x80000001));
  kernel.has_class(listed_class(kWanIndex, 0x80040002, 0x80040000));
  kernel.has_class(listed_class(kWanIndex, 0x00010001, 0x00010000));
  kernel.has_class(listed_class(kIfbIndex, 0x80000005, 0x80000001));
  EXPECT_THAT(handles(), ElementsAre(0x80000004));
}

TEST_F(CountersTest, OneClassIsAskedFor) {
  EXPECT_EQ(counters_of(0x80000005), std::nullopt);
  EXPECT_EQ(kernel.requests(), R"(RTM_GETTCLASS REQUEST|ACK|ECHO
  family 0 ifindex 3
  handle 8000:5
  parent none
  info 0
)");
}

TEST_F(CountersTest, OneClassIsReadAsAmongAll) {
  ListedClass gold = listed_class(kWanIndex, 0x80000005, 0x80000001);
  gold.traffic = {0xffff'ffff'ffff'ffff, 0xffff'ffff};
  gold.queue = {21, 0xffff'fffe, 0x8000'0000, 24, 17};
  kernel.has_class(listed_class(kWanIndex, 0x80000004, 0x80000001));
  kernel.has_class(gold);
  kernel.has_class(listed_class(kIfbIndex, 0x80000005, 0x80000001));
  EXPECT_EQ(counters_of(0x80000005), counters().at(1));
  EXPECT_EQ(counters_of(0x80000006), std::nullopt);
}

TEST_F(CountersTest, ARefusalThatMeansMoreIsAnError) {
  kernel.has_class(listed_class(kWanIndex, 0x80000005, 0x80000001));
  kernel.refuse(RTM_GETTCLASS, ENODEV);
  EXPECT_EXIT(counters_of(0x80000005), ExitedWithCode(1),
              Eq("Error: eth1 failed to get class(No such device)\n"));
}

TEST_F(CountersTest, LeavesAreListedWithTheirClasses) {
  ListedClass leaf = listed_class(kWanIndex, 0x80040000, 0x80000004);
  leaf.queue.drops = 12;
  kernel.has_leaf(leaf);
  kernel.has_leaf(listed_class(kIfbIndex, 0x80050000, 0x80000005));
  // Under somebody else's root, and a root.
  kernel.has_leaf(listed_class(kWanIndex, 0x00020000, 0x00010001));
  kernel.has_root_qdisc(kWanIndex, 0x80000000);
  EXPECT_THAT(leaf_drops(kernel.socket().get()), ElementsAre(LeafDrops{kWanIndex, 0x80000004, 12},
                                                             LeafDrops{kIfbIndex, 0x80000005, 0}));
}

TEST_F(CountersTest, LeavesOfAllDevicesAreAskedForAtOnce) {
  leaf_drops(kernel.socket().get());
  EXPECT_EQ(kernel.requests(), R"(RTM_GETQDISC REQUEST|ACK|DUMP
  family 0 ifindex 0
  handle none
  parent none
  info 0
)");
}

}  // namespace
}  // namespace golden
