#include "tests/golden/device_test.h"
#include "tests/golden/private_sbin.h"

// The order of the requests that build and remove a device's tree, and the command that sends the
// WAN device's traffic to the IFB device.
namespace golden {
namespace {

using quenby::Direction;
using quenby::GlobalSet;

const quenby::Side kWanSide = quenby::mark_side(Direction::upload);
const quenby::Side kIfbSide = quenby::mark_side(Direction::download);

// A line whose global section was read, with a default tariff unless its speed is 0.
GlobalSet shaped(std::int64_t download, std::int64_t upload, std::int64_t def = 0) {
  GlobalSet set;
  set.has_global = true;
  set.global = line(download, upload);
  set.has_default = def != 0;
  if (set.has_default) set.defaults.download = default_direction(true, def, def);
  if (set.has_default) set.defaults.upload = default_direction(false, def, def);
  return set;
}

class WanSetupTest : public DeviceTest {
 protected:
  WanSetupTest() { kernel.has_root_qdisc(kWanIndex, kHtb); }

  std::string setup(std::int64_t upload, std::int64_t def = 0) {
    eth().setup(tree(kWanSide, shaped(kTenMbit, upload, def)));
    return kernel.summaries();
  }

  // What every build starts and ends with.
  const std::string cleaned =
      "RTM_GETQDISC DUMP\n"
      "RTM_DELQDISC ifindex 3 htb 8000:0 parent root\n"
      "RTM_DELQDISC ifindex 3 ingress ffff:0 parent ingress\n";
  const std::string ingress = "RTM_NEWQDISC CREATE ifindex 3 ingress ffff:0 parent ingress\n";
};

TEST_F(WanSetupTest, WithoutASpeedThereIsTheIngressQdiscOnlyAndABlockedOneHasAPlainFairQueue) {
  EXPECT_EQ(setup(-2), cleaned + ingress);
  kernel.has_root_qdisc(kWanIndex, kHtb);
  EXPECT_EQ(setup(0),
            cleaned + "RTM_NEWQDISC CREATE ifindex 3 fq_codel 1:0 parent root\n" + ingress);
}

TEST_F(WanSetupTest, TheIngressQdiscComesAfterTheClassesAndTheFilter) {
  EXPECT_EQ(setup(kTenMbit, 625'000), cleaned +
                                          R"(RTM_NEWQDISC CREATE ifindex 3 htb 8000:0 parent root
RTM_NEWTCLASS CREATE ifindex 3 htb 8000:1 parent 8000:0
RTM_NEWTCLASS CREATE ifindex 3 htb 8000:2 parent 8000:1
RTM_NEWQDISC CREATE ifindex 3 fq_codel 8002:0 parent 8000:2
RTM_NEWTCLASS CREATE ifindex 3 htb 8000:3 parent 8000:1
RTM_NEWQDISC CREATE ifindex 3 fq_codel 8003:0 parent 8000:3
RTM_DELTFILTER ifindex 3 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 3 fw parent 8000:0 prio 2
RTM_NEWTFILTER CREATE ifindex 3 fw parent 8000:0 prio 1
)" + ingress);
}

TEST_F(WanSetupTest, TeardownRemovesIngressThenRoot) {
  eth().teardown(shaped(kTenMbit, kTenMbit));
  EXPECT_EQ(kernel.summaries(), R"(RTM_DELQDISC ifindex 3 ingress ffff:0 parent ingress
RTM_GETQDISC DUMP
RTM_DELQDISC ifindex 3 htb 8000:0 parent root
)");
}

constexpr const char* kRedirect =
    "/sbin/tc filter add dev eth1 parent ffff: protocol ip pref 1 u32 match u32 0 0 "
    "action connmark action mirred egress redirect dev ifb_ingr\n";

const std::string kIfbCleaned =
    "RTM_GETQDISC DUMP\nRTM_DELQDISC ifindex 7 htb 8000:0 parent root\n";
const std::string kIfbBuilt = R"(RTM_NEWQDISC CREATE ifindex 7 htb 8000:0 parent root
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:1 parent 8000:0
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:2 parent 8000:1
RTM_NEWQDISC CREATE ifindex 7 fq_codel 8002:0 parent 8000:2
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:3 parent 8000:1
RTM_NEWQDISC CREATE ifindex 7 fq_codel 8003:0 parent 8000:3
RTM_DELTFILTER ifindex 7 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 3 parent ffff:0 prio 1
RTM_NEWTFILTER CREATE ifindex 7 fw parent 8000:0 prio 1
)";

class IfbSetupTest : public DeviceTest {
 protected:
  IfbSetupTest() { kernel.has_root_qdisc(kIfbIndex, kHtb); }

  SbinRun setup(int tc_status) {
    return run_with_private_sbin(tc_status, [&] {
      ifb().setup(tree(kIfbSide, shaped(kTenMbit, 0, 625'000)));
      return kernel.summaries();
    });
  }
};

TEST_F(IfbSetupTest, TheRedirectionIsLast) {
  const SbinRun run = setup(0);
  EXPECT_EQ(run.result, kIfbCleaned + kIfbBuilt);
  EXPECT_EQ(run.commands, kRedirect);
  EXPECT_EQ(run.status, 0);
}

TEST_F(IfbSetupTest, AFailedRedirectionEndsTheRunWithoutAMessage) {
  const SbinRun run = setup(2);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(run.commands, kRedirect);
}

TEST_F(IfbSetupTest, TheDeviceIsMadeWhenItIsMissing) {
  kernel.has_no_links();
  kernel.has_link("eth1", kWanIndex);
  const SbinRun run = setup(0);
  EXPECT_EQ(run.result, "RTM_NEWLINK CREATE \"ifb_ingr\"\nRTM_GETLINK DUMP\n" + kIfbBuilt);
  EXPECT_EQ(run.commands, kRedirect);
}

TEST_F(IfbSetupTest, AnEmptyTreeIsOnlyCleaned) {
  ifb().setup({});
  EXPECT_EQ(kernel.summaries(), kIfbCleaned);
}

class ImqSetupTest : public DeviceTest {
 protected:
  static quenby::DeviceTree imq_tree(Direction way, std::int64_t def = 0) {
    GlobalSet set = shaped(kTenMbit, kTenMbit, def);
    set.global.wan.clear();
    return tree(quenby::imq_side(way), set);
  }
  const std::string upload_built =
      "RTM_NEWQDISC CREATE ifindex 9 htb 8000:0 parent root\n"
      "RTM_NEWTCLASS CREATE ifindex 9 htb 8000:8001 parent 8000:0\n";
};

TEST_F(ImqSetupTest, TheUploadReplacesTheRootAndRemovesIt) {
  const std::string cleaned = "RTM_GETQDISC DUMP\nRTM_DELQDISC ifindex 9 htb 8000:0 parent root\n";
  kernel.has_root_qdisc(kImqIndex, kHtb);
  imq(false).setup(imq_tree(Direction::upload));
  EXPECT_EQ(kernel.summaries(), cleaned + upload_built);
  imq(true).teardown(shaped(kTenMbit, kTenMbit));
  EXPECT_EQ(kernel.requests(), "");
  imq(false).teardown(shaped(kTenMbit, kTenMbit));
  EXPECT_EQ(kernel.summaries(), cleaned);
}

TEST_F(ImqSetupTest, TheDownloadAddsToTheSameRoot) {
  imq(true).setup(imq_tree(Direction::download, kTenMbit));
  EXPECT_EQ(kernel.summaries(), R"(RTM_NEWTCLASS CREATE ifindex 9 htb 8000:1 parent 8000:0
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:2 parent 8000:1
RTM_NEWQDISC CREATE ifindex 9 fq_codel 8002:0 parent 8000:2
)");
}

// Both objects are made before either builds anything.
TEST_F(ImqSetupTest, TheDownloadFindsTheDeviceThatTheUploadMakes) {
  kernel.has_no_links();
  quenby::CachePtr links = kernel.links();
  quenby::HtbImqIntf upload(false, kernel.socket(), links);
  quenby::HtbImqIntf download(true, kernel.socket(), links);
  upload.setup(imq_tree(Direction::upload));
  EXPECT_EQ(kernel.summaries(), "RTM_NEWLINK CREATE \"imq0\"\nRTM_GETLINK DUMP\n" + upload_built);
  download.setup(imq_tree(Direction::download));
  EXPECT_EQ(kernel.summaries(), "RTM_NEWTCLASS CREATE ifindex 9 htb 8000:1 parent 8000:0\n");
}

}  // namespace
}  // namespace golden
