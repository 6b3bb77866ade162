#include <cerrno>

#include "tests/golden/device_test.h"

// Which objects a change looks for before it is made in place.
namespace golden {
namespace {

using quenby::DeviceTree;
using quenby::Direction;

constexpr std::uint32_t kPlain = 0x10000;
constexpr std::int64_t kUnset = -2;

// A tree with the classes 4 and 5 wherever the line has one.
DeviceTree loaded(const quenby::Side& side, std::int64_t download, std::int64_t upload) {
  quenby::ResolvedSettings settings;
  settings.configured.has_global = true;
  settings.configured.global = line(download, upload);
  settings.tariffs =
      tariffs({tariff("amy", 4, kTenMbit, {"10.0.1.4"}), tariff("bob", 5, kTenMbit, {"10.0.1.5"})});
  settings.upload = {as_given(settings.configured, Direction::upload),
                     as_given(settings.tariffs, Direction::upload)};
  settings.download = {as_given(settings.configured, Direction::download),
                       as_given(settings.tariffs, Direction::download)};
  return device_tree(side, settings);
}

DeviceTree wan(std::int64_t upload) {
  return loaded(quenby::mark_side(Direction::upload), kTenMbit, upload);
}

DeviceTree incoming(std::int64_t download) {
  return loaded(quenby::mark_side(Direction::download), download, kTenMbit);
}

DeviceTree shared(Direction way, std::int64_t speed) {
  return loaded(quenby::imq_side(way), speed, speed);
}

class StandsTest : public DeviceTest {
 protected:
  void has_class(int ifindex, std::uint32_t minor) {
    kernel.has_class({.ifindex = ifindex, .handle = kHtb | minor, .parent = kHtb | 1});
  }
};

TEST_F(StandsTest, AsksForTheQdiscsAndTheLastClass) {
  kernel.has_ingress_qdisc(kWanIndex);
  kernel.has_root_qdisc(kWanIndex, kHtb);
  EXPECT_FALSE(eth().stands(wan(kTenMbit)));
  EXPECT_EQ(kernel.requests(), R"(RTM_GETQDISC REQUEST|ACK
  family 0 ifindex 3
  handle ffff:0
  parent ingress
  info 0
  TCA_KIND "ingress"
RTM_GETQDISC REQUEST|ACK
  family 0 ifindex 3
  handle 8000:0
  parent root
  info 0
  TCA_KIND "htb"
RTM_GETTCLASS REQUEST|ACK
  family 0 ifindex 3
  handle 8000:5
  parent 8000:1
  info 0
)");
}

TEST_F(StandsTest, UploadStandsWithIngressTreeAndLastClass) {
  kernel.has_root_qdisc(kWanIndex, kHtb);
  has_class(kWanIndex, 4);
  has_class(kIfbIndex, 5);
  EXPECT_FALSE(eth().stands(wan(kTenMbit)));
  kernel.has_ingress_qdisc(kWanIndex);
  EXPECT_FALSE(eth().stands(wan(kTenMbit)));
  has_class(kWanIndex, 5);
  EXPECT_TRUE(eth().stands(wan(kTenMbit)));
  kernel.has_root_qdisc(kWanIndex, kPlain);
  EXPECT_FALSE(eth().stands(wan(kTenMbit)));
}

TEST_F(StandsTest, UnshapedUploadStandsWithIngressAlone) {
  EXPECT_FALSE(eth().stands(wan(kUnset)));
  kernel.has_ingress_qdisc(kWanIndex);
  EXPECT_TRUE(eth().stands(wan(kUnset)));
}

TEST_F(StandsTest, BlockedUploadStandsWithThePlainQueue) {
  kernel.has_ingress_qdisc(kWanIndex);
  EXPECT_FALSE(eth().stands(wan(0)));
  kernel.has_root_qdisc(kWanIndex, kHtb);
  EXPECT_FALSE(eth().stands(wan(0)));
  kernel.has_root_qdisc(kWanIndex, kPlain);
  EXPECT_TRUE(eth().stands(wan(0)));
}

TEST_F(StandsTest, DownloadStandsWithTreeLastClassAndRedirection) {
  const DeviceTree tree = incoming(kTenMbit);
  EXPECT_FALSE(ifb().stands(tree));
  kernel.has_root_qdisc(kIfbIndex, kHtb);
  EXPECT_FALSE(ifb().stands(tree));
  has_class(kIfbIndex, 5);
  kernel.has_redirection({kWanIndex, 0});
  kernel.has_redirection({kWanIndex, kImqIndex});
  kernel.has_redirection({kImqIndex, kIfbIndex});
  EXPECT_FALSE(ifb().stands(tree));
  kernel.has_redirection({kWanIndex, kIfbIndex});
  EXPECT_TRUE(ifb().stands(tree));
}

TEST_F(StandsTest, UnshapedOrBlockedDownloadNeedsNothing) {
  for (const std::int64_t speed : {kUnset, std::int64_t{0}})
    EXPECT_TRUE(ifb().stands(incoming(speed)));
  EXPECT_EQ(kernel.requests(), "");
}

TEST_F(StandsTest, ImqDirectionsStandWithTheirLastClasses) {
  kernel.has_root_qdisc(kImqIndex, kHtb);
  has_class(kImqIndex, 5);
  EXPECT_TRUE(imq(true).stands(shared(Direction::download, kTenMbit)));
  EXPECT_FALSE(imq(false).stands(shared(Direction::upload, kTenMbit)));
  has_class(kImqIndex, 0x8005);
  EXPECT_TRUE(imq(false).stands(shared(Direction::upload, kTenMbit)));
  kernel.has_root_qdisc(kImqIndex, kPlain);
  EXPECT_FALSE(imq(false).stands(shared(Direction::upload, kTenMbit)));
}

TEST_F(StandsTest, ImqDirectionWithoutSpeedNeedsNothing) {
  EXPECT_TRUE(imq(false).stands(shared(Direction::upload, kUnset)));
  EXPECT_TRUE(imq(true).stands(shared(Direction::download, kUnset)));
  EXPECT_EQ(kernel.requests(), "");
}

TEST_F(BareRouterTest, MissingDevicesAreNotAsked) {
  EXPECT_FALSE(eth().stands(wan(kTenMbit)));
  EXPECT_FALSE(imq(true).stands(shared(Direction::download, kTenMbit)));
  kernel.has_link("eth1", kWanIndex);
  EXPECT_FALSE(ifb().stands(incoming(kTenMbit)));
  EXPECT_EQ(kernel.requests(), "");
}

TEST_F(StandsTest, ADoubtIsANo) {
  kernel.has_ingress_qdisc(kWanIndex);
  for (const int error : {ENODEV, EPERM, EOPNOTSUPP}) {
    kernel.refuse(RTM_GETQDISC, error);
    EXPECT_FALSE(eth().stands(wan(kUnset)));
  }
}

TEST_F(BareRouterTest, HasATreeWhereBothDevicesExist) {
  EXPECT_FALSE(ifb().has_tree(as_given(line(kTenMbit, kTenMbit), Direction::download)));
  kernel.has_link("eth1", kWanIndex);
  EXPECT_FALSE(ifb().has_tree(as_given(line(kTenMbit, kTenMbit), Direction::download)));
  EXPECT_TRUE(eth().has_tree(as_given(line(kUnset, kTenMbit), Direction::upload)));
  EXPECT_FALSE(eth().has_tree(as_given(line(kTenMbit, kUnset), Direction::upload)));
  EXPECT_FALSE(eth().has_tree(as_given(line(kTenMbit, 0), Direction::upload)));
  kernel.has_link("ifb_ingr", kIfbIndex);
  EXPECT_TRUE(ifb().has_tree(as_given(line(kTenMbit, kTenMbit), Direction::download)));
}

TEST_F(DeviceTest, ABlockedImqDirectionHasATree) {
  EXPECT_TRUE(imq(false).has_tree(as_given(line(kTenMbit, 0), Direction::upload)));
  EXPECT_FALSE(imq(false).has_tree(as_given(line(kTenMbit, kUnset), Direction::upload)));
}

}  // namespace
}  // namespace golden
