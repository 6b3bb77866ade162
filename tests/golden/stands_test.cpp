#include <cerrno>

#include "tests/golden/device_test.h"

// Which objects a change looks for before it is made in place.
namespace golden {
namespace {

constexpr std::uint32_t kHtb = 0x80000000;
constexpr std::uint32_t kPlain = 0x10000;
constexpr std::int64_t kUnset = -2;

TEST_F(DeviceTest, AsksForOneQdisc) {
  EXPECT_FALSE(eth().stands(line(kTenMbit, kTenMbit)));
  EXPECT_EQ(kernel.requests(), R"(RTM_GETQDISC REQUEST|ACK
  family 0 ifindex 3
  handle ffff:0
  parent ingress
  info 0
  TCA_KIND "ingress"
)");
  kernel.has_root_qdisc(kImqIndex, kHtb);
  EXPECT_TRUE(imq(false).stands(line(kTenMbit, kTenMbit)));
  EXPECT_EQ(kernel.requests(), R"(RTM_GETQDISC REQUEST|ACK
  family 0 ifindex 9
  handle 8000:0
  parent root
  info 0
  TCA_KIND "htb"
)");
}

TEST_F(DeviceTest, UploadStandsWithIngressAndTree) {
  const quenby::GlobalSettings g = line(kUnset, kTenMbit);
  kernel.has_root_qdisc(kWanIndex, kHtb);
  EXPECT_FALSE(eth().stands(g));
  kernel.has_ingress_qdisc(kWanIndex);
  EXPECT_TRUE(eth().stands(g));
  kernel.has_root_qdisc(kWanIndex, kPlain);
  EXPECT_FALSE(eth().stands(g));
}

TEST_F(DeviceTest, UnshapedUploadStandsWithIngressAlone) {
  const quenby::GlobalSettings g = line(kTenMbit, kUnset);
  EXPECT_FALSE(eth().stands(g));
  kernel.has_ingress_qdisc(kWanIndex);
  EXPECT_TRUE(eth().stands(g));
}

TEST_F(DeviceTest, BlockedUploadStandsWithThePlainQueue) {
  const quenby::GlobalSettings g = line(kTenMbit, 0);
  kernel.has_ingress_qdisc(kWanIndex);
  EXPECT_FALSE(eth().stands(g));
  kernel.has_root_qdisc(kWanIndex, kHtb);
  EXPECT_FALSE(eth().stands(g));
  kernel.has_root_qdisc(kWanIndex, kPlain);
  EXPECT_TRUE(eth().stands(g));
}

TEST_F(DeviceTest, DownloadStandsWithTreeAndRedirection) {
  const quenby::GlobalSettings g = line(kTenMbit, kUnset);
  EXPECT_FALSE(ifb().stands(g));
  kernel.has_root_qdisc(kIfbIndex, kHtb);
  EXPECT_FALSE(ifb().stands(g));
  kernel.has_redirection({kWanIndex, 0});
  kernel.has_redirection({kWanIndex, kImqIndex});
  kernel.has_redirection({kImqIndex, kIfbIndex});
  EXPECT_FALSE(ifb().stands(g));
  kernel.has_redirection({kWanIndex, kIfbIndex});
  EXPECT_TRUE(ifb().stands(g));
}

TEST_F(DeviceTest, UnshapedOrBlockedDownloadNeedsNothing) {
  for (const std::int64_t speed : {kUnset, std::int64_t{0}})
    EXPECT_TRUE(ifb().stands(line(speed, kTenMbit)));
  EXPECT_EQ(kernel.requests(), "");
}

TEST_F(DeviceTest, ImqDirectionWithoutSpeedNeedsNothing) {
  for (const bool ingress : {false, true}) {
    EXPECT_TRUE(imq(ingress).stands(line(kUnset, kUnset)));
    EXPECT_FALSE(imq(ingress).stands(line(0, 0)));
  }
}

TEST_F(BareRouterTest, MissingDevicesAreNotAsked) {
  EXPECT_FALSE(eth().stands(line(kTenMbit, kTenMbit)));
  EXPECT_FALSE(imq(true).stands(line(kTenMbit, kTenMbit)));
  kernel.has_link("eth1", kWanIndex);
  EXPECT_FALSE(ifb().stands(line(kTenMbit, kTenMbit)));
  EXPECT_EQ(kernel.requests(), "");
}

// A download that nobody wants is no reason to build, whatever became of "ifb_ingr".
TEST_F(BareRouterTest, DownloadOfAMissingWanDeviceNeedsNothing) {
  EXPECT_TRUE(ifb().stands(line(kTenMbit, kTenMbit)));
}

TEST_F(DeviceTest, ADoubtIsANo) {
  kernel.has_ingress_qdisc(kWanIndex);
  for (const int error : {ENODEV, EPERM, EOPNOTSUPP}) {
    kernel.refuse(RTM_GETQDISC, error);
    EXPECT_FALSE(eth().stands(line(kTenMbit, kUnset)));
  }
}

TEST_F(DeviceTest, WantsATreeWhateverStands) {
  EXPECT_TRUE(eth().wants_tree(line(kUnset, kTenMbit)));
  EXPECT_FALSE(eth().wants_tree(line(kTenMbit, kUnset)));
  EXPECT_FALSE(eth().wants_tree(line(kTenMbit, 0)));
  EXPECT_TRUE(imq(false).wants_tree(line(kTenMbit, 0)));
  EXPECT_FALSE(imq(false).wants_tree(line(kTenMbit, kUnset)));
}

TEST_F(BareRouterTest, WantsATreeWithoutTheDeviceForIt) {
  EXPECT_FALSE(ifb().wants_tree(line(kTenMbit, kTenMbit)));
  kernel.has_link("eth1", kWanIndex);
  EXPECT_TRUE(ifb().wants_tree(line(kTenMbit, kTenMbit)));
  EXPECT_FALSE(ifb().has_tree(line(kTenMbit, kTenMbit)));
}

}  // namespace
}  // namespace golden
