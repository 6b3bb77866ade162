#include "tests/golden/device_test.h"
#include "tests/golden/private_sbin.h"

// The order of the requests that build and remove the IFB device's tree, and the command that sends
// the WAN device's traffic there.
namespace golden {
namespace {

using quenby::GlobalSet;

constexpr std::uint32_t kHtb = 0x80000000;
const quenby::Side kDownload = quenby::mark_side(quenby::Direction::download);
constexpr const char* kPlainRedirect =
    "/sbin/tc filter add dev eth1 parent ffff: protocol ip pref 1 u32 match u32 0 0 "
    "action mirred egress redirect dev ifb_ingr\n";
constexpr const char* kMarkRedirect =
    "/sbin/tc filter add dev eth1 parent ffff: protocol ip pref 1 u32 match u32 0 0 "
    "action connmark action mirred egress redirect dev ifb_ingr\n";

const std::string kCleaned = "RTM_GETQDISC DUMP\nRTM_DELQDISC ifindex 7 htb 8000:0 parent root\n";
const std::string kRootClass = R"(RTM_NEWQDISC CREATE ifindex 7 htb 8000:0 parent root
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:1 parent 8000:0
)";
const std::string kDefaultLeaf = R"(RTM_NEWTCLASS CREATE ifindex 7 htb 8000:2 parent 8000:1
RTM_NEWQDISC CREATE ifindex 7 fq_codel 8002:0 parent 8000:2
)";
const std::string kDefaultTariffLeaf = R"(RTM_NEWTCLASS CREATE ifindex 7 htb 8000:3 parent 8000:1
RTM_NEWQDISC CREATE ifindex 7 fq_codel 8003:0 parent 8000:3
)";
const std::string kFiltersRemoved = R"(RTM_DELTFILTER ifindex 7 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 3 parent ffff:0 prio 1
)";
const std::string kFwFilter = "RTM_NEWTFILTER CREATE ifindex 7 fw parent 8000:0 prio 1\n";

GlobalSet global_set(std::int64_t download, std::int64_t upload) {
  GlobalSet set;
  set.has_global = true;
  set.global = line(download, upload);
  return set;
}

class IfbSetupTest : public DeviceTest {
 protected:
  IfbSetupTest() { kernel.has_root_qdisc(kIfbIndex, kHtb); }

  SbinRun setup(const GlobalSet& set, const GlobalSet& given, bool tariffs, int tc_status = 0) {
    return run_with_private_sbin(tc_status, [&] {
      ifb().setup(tree(kDownload, set, given, tariffs));
      return kernel.summaries();
    });
  }
  SbinRun setup(const GlobalSet& set, bool tariffs) { return setup(set, set, tariffs); }
};

TEST_F(IfbSetupTest, ADownloadWithSpeedAndTariffs) {
  const SbinRun run = setup(global_set(kTenMbit, 0), true);
  EXPECT_EQ(run.result, kCleaned + kRootClass + kDefaultLeaf + kFiltersRemoved + kFwFilter);
  EXPECT_EQ(run.commands, kMarkRedirect);
  EXPECT_EQ(run.status, 0);
}

TEST_F(IfbSetupTest, WithoutMarksTheTrafficIsOnlyRedirected) {
  const SbinRun run = setup(global_set(kTenMbit, 0), false);
  EXPECT_EQ(run.result, kCleaned + kRootClass + kDefaultLeaf + kFiltersRemoved);
  EXPECT_EQ(run.commands, kPlainRedirect);
}

TEST_F(IfbSetupTest, ADefaultTariffWithoutTariffs) {
  GlobalSet set = global_set(kTenMbit, -2);
  set.has_default = true;
  set.defaults.download = default_direction(true, 625'000, 625'000);
  const SbinRun run = setup(set, false);
  EXPECT_EQ(run.result, kCleaned + kRootClass + kDefaultLeaf + kDefaultTariffLeaf +
                            kFiltersRemoved + kFwFilter);
  EXPECT_EQ(run.commands, kMarkRedirect);
}

TEST_F(IfbSetupTest, ALineWhoseSpeedCameFromTheTariffs) {
  const SbinRun run = setup(global_set(kTenMbit, kTenMbit), global_set(-2, -2), true);
  EXPECT_EQ(run.result, kCleaned + kRootClass + kFiltersRemoved + kFwFilter);
  EXPECT_EQ(run.commands, kMarkRedirect);
}

TEST_F(IfbSetupTest, AFailedRedirectionEndsTheRunWithoutAMessage) {
  const SbinRun run = setup(global_set(kTenMbit, 0), global_set(kTenMbit, 0), true, 2);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(run.commands, kMarkRedirect);
}

TEST_F(BareRouterTest, TheIfbDeviceIsMadeWhenItIsMissing) {
  kernel.has_link("eth1", kWanIndex);
  const SbinRun run = run_with_private_sbin(0, [&] {
    const GlobalSet set = global_set(kTenMbit, 0);
    ifb().setup(tree(kDownload, set, set, false));
    return kernel.summaries();
  });
  EXPECT_EQ(run.result, "RTM_NEWLINK CREATE \"ifb_ingr\"\nRTM_GETLINK DUMP\n" + kRootClass +
                            kDefaultLeaf + kFiltersRemoved);
  EXPECT_EQ(run.commands, kPlainRedirect);
}

TEST_F(IfbSetupTest, ADownloadWithoutSpeedOrBlockedIsOnlyCleaned) {
  for (const std::int64_t speed : {-2, 0}) {
    kernel.has_root_qdisc(kIfbIndex, kHtb);
    const GlobalSet set = global_set(speed, kTenMbit);
    ifb().setup(tree(kDownload, set, set, true));
    EXPECT_EQ(kernel.summaries(), kCleaned);
  }
}

TEST_F(BareRouterTest, NoIfbDeviceIsMadeForAnEmptyTree) {
  ifb().setup({});
  EXPECT_EQ(kernel.requests(), "");
}

TEST_F(BareRouterTest, TeardownOfAMissingDeviceAsksNothing) {
  ifb().teardown(global_set(kTenMbit, kTenMbit));
  EXPECT_EQ(kernel.requests(), "");
}

}  // namespace
}  // namespace golden
