#include "tests/golden/device_test.h"

// The order of the requests that build and remove the WAN device's tree.
namespace golden {
namespace {

using quenby::GlobalSet;

constexpr std::uint32_t kHtb = 0x80000000;
const quenby::Side kUpload = quenby::mark_side(quenby::Direction::upload);

// What every build on a device with an HTB root starts with, and what it ends with.
const std::string kCleaned = R"(RTM_GETQDISC DUMP
RTM_DELQDISC ifindex 3 htb 8000:0 parent root
RTM_DELQDISC ifindex 3 ingress ffff:0 parent ingress
)";
const std::string kRootClass = R"(RTM_NEWQDISC CREATE ifindex 3 htb 8000:0 parent root
RTM_NEWTCLASS CREATE ifindex 3 htb 8000:1 parent 8000:0
)";
const std::string kDefaultLeaf = R"(RTM_NEWTCLASS CREATE ifindex 3 htb 8000:2 parent 8000:1
RTM_NEWQDISC CREATE ifindex 3 fq_codel 8002:0 parent 8000:2
)";
const std::string kDefaultTariffLeaf = R"(RTM_NEWTCLASS CREATE ifindex 3 htb 8000:3 parent 8000:1
RTM_NEWQDISC CREATE ifindex 3 fq_codel 8003:0 parent 8000:3
)";
const std::string kFiltersRemoved = R"(RTM_DELTFILTER ifindex 3 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 3 fw parent 8000:0 prio 2
)";
const std::string kFwFilter = "RTM_NEWTFILTER CREATE ifindex 3 fw parent 8000:0 prio 1\n";
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

  // `set` stands for the settings as configured and as resolved.
  std::string setup(const GlobalSet& set, bool tariffs) { return setup(set, set, tariffs); }
  std::string setup(const GlobalSet& set, const GlobalSet& given, bool tariffs) {
    eth().setup(tree(kUpload, set, given, tariffs));
    return kernel.summaries();
  }
};

TEST_F(BareRouterTest, NothingIsBuiltWithoutTheWanDevice) {
  const GlobalSet set = global_set(kTenMbit, kTenMbit);
  eth().setup(tree(kUpload, set, set, true));
  EXPECT_EQ(kernel.requests(), "");
}

TEST_F(EthSetupTest, AnUploadWithoutSpeedGetsTheIngressQdiscOnly) {
  EXPECT_EQ(setup(global_set(kTenMbit, -2), true), kCleaned + kIngress);
}

TEST_F(EthSetupTest, ABlockedUploadGetsAPlainFairQueue) {
  EXPECT_EQ(setup(global_set(kTenMbit, 0), true),
            kCleaned + "RTM_NEWQDISC CREATE ifindex 3 fq_codel 1:0 parent root\n" + kIngress);
}

TEST_F(EthSetupTest, AnUploadWithSpeedAndTariffs) {
  EXPECT_EQ(setup(global_set(kTenMbit, kTenMbit), true),
            kCleaned + kRootClass + kDefaultLeaf + kFiltersRemoved + kFwFilter + kIngress);
}

TEST_F(EthSetupTest, WithoutMarksThereIsNoMarkFilter) {
  EXPECT_EQ(setup(global_set(kTenMbit, kTenMbit), false),
            kCleaned + kRootClass + kDefaultLeaf + kFiltersRemoved + kIngress);
}

TEST_F(EthSetupTest, ADefaultTariffWithoutTariffs) {
  GlobalSet set = global_set(kTenMbit, kTenMbit);
  set.has_default = true;
  set.defaults.upload = default_direction(false, 625'000, 625'000);
  EXPECT_EQ(setup(set, false), kCleaned + kRootClass + kDefaultLeaf + kDefaultTariffLeaf +
                                   kFiltersRemoved + kFwFilter + kIngress);
}

TEST_F(EthSetupTest, ADefaultTariffForTheOtherDirection) {
  GlobalSet set = global_set(kTenMbit, kTenMbit);
  set.has_default = true;
  set.defaults.download = default_direction(true, 625'000, 625'000);
  EXPECT_EQ(setup(set, false),
            kCleaned + kRootClass + kDefaultLeaf + kFiltersRemoved + kFwFilter + kIngress);
}

TEST_F(EthSetupTest, DefaultSettingsOfNoSectionAreIgnored) {
  GlobalSet set = global_set(kTenMbit, kTenMbit);
  set.defaults.upload = default_direction(false, 625'000, 625'000);
  EXPECT_EQ(setup(set, false), kCleaned + kRootClass + kDefaultLeaf + kFiltersRemoved + kIngress);
}

// The line itself is not limited; its root class stands for what the tariffs need.
TEST_F(EthSetupTest, ALineWhoseSpeedCameFromTheTariffs) {
  GlobalSet set = global_set(kTenMbit, kTenMbit);
  for (const bool has_global : {false, true}) {
    GlobalSet given = global_set(-2, -2);
    given.has_global = has_global;
    kernel.has_root_qdisc(kWanIndex, kHtb);
    EXPECT_EQ(setup(set, given, true),
              kCleaned + kRootClass + kFiltersRemoved + kFwFilter + kIngress);
  }
}

TEST_F(EthSetupTest, ADefaultClassMeansADefaultInTheRoot) {
  const GlobalSet set = global_set(kTenMbit, kTenMbit);
  eth().setup(tree(kUpload, set, set, true));
  EXPECT_NE(kernel.requests().find("default class 2\n"), std::string::npos);

  kernel.has_root_qdisc(kWanIndex, kHtb);
  eth().setup(tree(kUpload, set, global_set(-2, -2), true));
  EXPECT_NE(kernel.requests().find("default class 0\n"), std::string::npos);
}

// The default class follows the speed as given, the root class the resolved one.
TEST_F(EthSetupTest, TheDefaultClassHasTheSpeedAsGiven) {
  const GlobalSet set = global_set(2'500'000, 2'500'000);
  eth().setup(tree(kUpload, set, global_set(kTenMbit, kTenMbit), true));
  const std::string requests = kernel.requests();
  const auto root = requests.find("handle 8000:1\n");
  const auto leaf = requests.find("handle 8000:2\n");
  EXPECT_NE(requests.substr(root, leaf - root).find("ceil 2500000 bytes/s\n"), std::string::npos);
  EXPECT_NE(requests.substr(leaf).find("ceil 1250000 bytes/s\n"), std::string::npos);
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
