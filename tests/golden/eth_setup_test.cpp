#include "tests/golden/device_test.h"

// The order of the requests that build and remove the WAN device's tree.
namespace golden {
namespace {

using quenby::GlobalSet;

constexpr std::uint32_t kHtb = 0x80000000;
const quenby::Side kUpload = quenby::mark_side(quenby::Direction::upload);

// What every build starts and ends with.
const std::string kCleaned = R"(RTM_GETQDISC DUMP
RTM_DELQDISC ifindex 3 htb 8000:0 parent root
RTM_DELQDISC ifindex 3 ingress ffff:0 parent ingress
)";
const std::string kIngress = "RTM_NEWQDISC CREATE ifindex 3 ingress ffff:0 parent ingress\n";

// A line whose global section was read.
GlobalSet global_set(std::int64_t download, std::int64_t upload) {
  GlobalSet set;
  set.has_global = true;
  set.global = line(download, upload);
  return set;
}

class EthSetupTest : public DeviceTest {
 protected:
  EthSetupTest() { kernel.has_root_qdisc(kWanIndex, kHtb); }

  std::string setup(const GlobalSet& set) {
    eth().setup(tree(kUpload, set));
    return kernel.summaries();
  }
};

TEST_F(BareRouterTest, NothingIsBuiltWithoutTheWanDevice) {
  eth().setup(tree(kUpload, global_set(kTenMbit, kTenMbit)));
  EXPECT_EQ(kernel.requests(), "");
}

TEST_F(EthSetupTest, AnUploadWithoutSpeedGetsTheIngressQdiscOnly) {
  EXPECT_EQ(setup(global_set(kTenMbit, -2)), kCleaned + kIngress);
}

TEST_F(EthSetupTest, ABlockedUploadGetsAPlainFairQueue) {
  EXPECT_EQ(setup(global_set(kTenMbit, 0)),
            kCleaned + "RTM_NEWQDISC CREATE ifindex 3 fq_codel 1:0 parent root\n" + kIngress);
}

TEST_F(EthSetupTest, TheIngressQdiscComesAfterTheClassesAndTheFilter) {
  GlobalSet set = global_set(kTenMbit, kTenMbit);
  set.has_default = true;
  set.defaults.upload = default_direction(false, 625'000, 625'000);
  EXPECT_EQ(setup(set), kCleaned + R"(RTM_NEWQDISC CREATE ifindex 3 htb 8000:0 parent root
RTM_NEWTCLASS CREATE ifindex 3 htb 8000:1 parent 8000:0
RTM_NEWTCLASS CREATE ifindex 3 htb 8000:2 parent 8000:1
RTM_NEWQDISC CREATE ifindex 3 fq_codel 8002:0 parent 8000:2
RTM_NEWTCLASS CREATE ifindex 3 htb 8000:3 parent 8000:1
RTM_NEWQDISC CREATE ifindex 3 fq_codel 8003:0 parent 8000:3
RTM_DELTFILTER ifindex 3 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 3 fw parent 8000:0 prio 2
RTM_NEWTFILTER CREATE ifindex 3 fw parent 8000:0 prio 1
)" + kIngress);
}

TEST_F(EthSetupTest, TeardownRemovesIngressThenRoot) {
  eth().teardown(global_set(kTenMbit, kTenMbit));
  EXPECT_EQ(kernel.summaries(), R"(RTM_DELQDISC ifindex 3 ingress ffff:0 parent ingress
RTM_GETQDISC DUMP
RTM_DELQDISC ifindex 3 htb 8000:0 parent root
)");
}

TEST_F(BareRouterTest, TeardownOfAMissingWanDeviceAsksNothing) {
  eth().teardown(global_set(kTenMbit, kTenMbit));
  EXPECT_EQ(kernel.requests(), "");
}

}  // namespace
}  // namespace golden
