#include "tests/golden/device_test.h"
#include "tests/golden/private_sbin.h"

// The order of the requests that build and remove the IFB device's tree, and the command that sends
// the WAN device's traffic there.
namespace golden {
namespace {

using quenby::GlobalSet;

constexpr std::uint32_t kHtb = 0x80000000;
const quenby::Side kDownload = quenby::mark_side(quenby::Direction::download);
constexpr const char* kRedirect =
    "/sbin/tc filter add dev eth1 parent ffff: protocol ip pref 1 u32 match u32 0 0 "
    "action connmark action mirred egress redirect dev ifb_ingr\n";

const std::string kCleaned = "RTM_GETQDISC DUMP\nRTM_DELQDISC ifindex 7 htb 8000:0 parent root\n";
const std::string kBuilt = R"(RTM_NEWQDISC CREATE ifindex 7 htb 8000:0 parent root
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:1 parent 8000:0
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:2 parent 8000:1
RTM_NEWQDISC CREATE ifindex 7 fq_codel 8002:0 parent 8000:2
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:3 parent 8000:1
RTM_NEWQDISC CREATE ifindex 7 fq_codel 8003:0 parent 8000:3
RTM_DELTFILTER ifindex 7 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 3 parent ffff:0 prio 1
RTM_NEWTFILTER CREATE ifindex 7 fw parent 8000:0 prio 1
)";

GlobalSet shaped() {
  GlobalSet set;
  set.has_global = set.has_default = true;
  set.global = line(kTenMbit, 0);
  set.defaults.download = default_direction(true, 625'000, 625'000);
  return set;
}

class IfbSetupTest : public DeviceTest {
 protected:
  IfbSetupTest() { kernel.has_root_qdisc(kIfbIndex, kHtb); }

  SbinRun setup(int tc_status) {
    return run_with_private_sbin(tc_status, [&] {
      ifb().setup(tree(kDownload, shaped()));
      return kernel.summaries();
    });
  }
};

TEST_F(IfbSetupTest, TheRedirectionIsLast) {
  const SbinRun run = setup(0);
  EXPECT_EQ(run.result, kCleaned + kBuilt);
  EXPECT_EQ(run.commands, kRedirect);
  EXPECT_EQ(run.status, 0);
}

TEST_F(IfbSetupTest, AFailedRedirectionEndsTheRunWithoutAMessage) {
  const SbinRun run = setup(2);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(run.commands, kRedirect);
}

TEST_F(BareRouterTest, TheIfbDeviceIsMadeWhenItIsMissing) {
  kernel.has_link("eth1", kWanIndex);
  const SbinRun run = run_with_private_sbin(0, [&] {
    ifb().setup(tree(kDownload, shaped()));
    return kernel.summaries();
  });
  EXPECT_EQ(run.result, "RTM_NEWLINK CREATE \"ifb_ingr\"\nRTM_GETLINK DUMP\n" + kBuilt);
  EXPECT_EQ(run.commands, kRedirect);
}

TEST_F(IfbSetupTest, AnEmptyTreeIsOnlyCleaned) {
  ifb().setup({});
  EXPECT_EQ(kernel.summaries(), kCleaned);
}

TEST_F(BareRouterTest, NoIfbDeviceIsMadeForAnEmptyTree) {
  ifb().setup({});
  EXPECT_EQ(kernel.requests(), "");
}

TEST_F(BareRouterTest, TeardownOfAMissingDeviceAsksNothing) {
  ifb().teardown(shaped());
  EXPECT_EQ(kernel.requests(), "");
}

}  // namespace
}  // namespace golden
