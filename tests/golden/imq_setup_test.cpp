#include "tests/golden/device_test.h"

// The order of the requests that build and remove the IMQ device's tree.
namespace golden {
namespace {

using quenby::GlobalSet;

const quenby::Side kUpload = quenby::imq_side(quenby::Direction::upload);
const quenby::Side kDownload = quenby::imq_side(quenby::Direction::download);

GlobalSet imq_set(std::int64_t download, std::int64_t upload) {
  GlobalSet set;
  set.global = line(download, upload);
  set.global.wan.clear();
  return set;
}

TEST_F(BareRouterTest, TheUploadMakesTheImqDevice) {
  const GlobalSet set = imq_set(kTenMbit, kTenMbit);
  imq(false).setup(tree(kUpload, set));
  EXPECT_EQ(kernel.summaries(), R"(RTM_NEWLINK CREATE "imq0"
RTM_GETLINK DUMP
RTM_NEWQDISC CREATE ifindex 9 htb 8000:0 parent root
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:8001 parent 8000:0
)");
}

TEST_F(DeviceTest, TheUploadReplacesTheImqRoot) {
  kernel.has_root_qdisc(kImqIndex, 0x80000000);
  const GlobalSet set = imq_set(kTenMbit, kTenMbit);
  imq(false).setup(tree(kUpload, set));
  EXPECT_EQ(kernel.summaries(), R"(RTM_GETQDISC DUMP
RTM_DELQDISC ifindex 9 htb 8000:0 parent root
RTM_NEWQDISC CREATE ifindex 9 htb 8000:0 parent root
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:8001 parent 8000:0
)");
}

TEST_F(DeviceTest, TheDownloadAddsToTheSameRoot) {
  GlobalSet set = imq_set(kTenMbit, kTenMbit);
  set.defaults.download = default_direction(true, kTenMbit, kTenMbit);
  set.has_default = true;
  imq(true).setup(tree(kDownload, set));
  EXPECT_EQ(kernel.summaries(), R"(RTM_NEWTCLASS CREATE ifindex 9 htb 8000:1 parent 8000:0
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:2 parent 8000:1
RTM_NEWQDISC CREATE ifindex 9 fq_codel 8002:0 parent 8000:2
)");
}

// Both objects are made before either builds anything.
TEST_F(BareRouterTest, TheDownloadFindsTheDeviceThatTheUploadMade) {
  quenby::CachePtr links = kernel.links();
  quenby::HtbImqIntf upload(false, kernel.socket(), links);
  quenby::HtbImqIntf download(true, kernel.socket(), links);
  const GlobalSet set = imq_set(kTenMbit, kTenMbit);
  upload.setup(tree(kUpload, set));
  kernel.requests();
  download.setup(tree(kDownload, set));
  EXPECT_EQ(kernel.summaries(), "RTM_NEWTCLASS CREATE ifindex 9 htb 8000:1 parent 8000:0\n");
}

TEST_F(DeviceTest, TheUploadRemovesTheImqRoot) {
  kernel.has_root_qdisc(kImqIndex, 0x80000000);
  imq(true).teardown(imq_set(kTenMbit, kTenMbit));
  EXPECT_EQ(kernel.requests(), "");
  imq(false).teardown(imq_set(kTenMbit, kTenMbit));
  EXPECT_EQ(kernel.summaries(),
            "RTM_GETQDISC DUMP\nRTM_DELQDISC ifindex 9 htb 8000:0 parent root\n");
}

}  // namespace
}  // namespace golden
