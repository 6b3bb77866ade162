#include <linux/rtnetlink.h>

#include <cerrno>

#include "tests/golden/device_test.h"

// The address tree of the IMQ device.
namespace golden {
namespace {

constexpr const char* kDownloadBase =
    R"(RTM_NEWTFILTER CREATE ifindex 9 u32 table 2 bucket 0 node 0 parent 8000:0 prio 1
RTM_NEWTFILTER CREATE ifindex 9 u32 parent 8000:0 prio 1
)";

// One tariff with class number 5.
class AddressTreeTest : public DeviceTest {
 protected:
  void add(bool ingress, const std::vector<std::string>& addresses) {
    const auto t = tariff("a", 5, kTenMbit, addresses);
    quenby::AddressTree tree(ingress ? quenby::HandleScheme::imq_download
                                     : quenby::HandleScheme::imq_upload);
    imq(ingress).create_ht_leaf(t.direction(quenby::direction_of(ingress)), tree, t.addresses,
                                false);
  }
};

TEST_F(DeviceTest, TheBaseTables) {
  const quenby::GlobalSettings both = line(kTenMbit, kTenMbit);
  imq(true).create_base_ht(both, {});
  EXPECT_EQ(kernel.values(),
            R"(RTM_NEWTFILTER CREATE ifindex 9 u32 table 2 bucket 0 node 0 parent 8000:0 prio 1
  DIVISOR 16
RTM_NEWTFILTER CREATE ifindex 9 u32 parent 8000:0 prio 1
  LINK table 2 bucket 0 node 0 flags 0 hash mask ff00 at 16 key 0/0 at 16 offmask 0
)");
  imq(false).create_base_ht(both, {});
  EXPECT_EQ(kernel.values(),
            R"(RTM_NEWTFILTER CREATE ifindex 9 u32 table 19 bucket 0 node 0 parent 8000:0 prio 1
  DIVISOR 16
RTM_NEWTFILTER CREATE ifindex 9 u32 parent 8000:0 prio 1
  LINK table 19 bucket 0 node 0 flags 0 hash mask ff00 at 12 key 0/0 at 12 offmask 0
)");
}

TEST_F(DeviceTest, ATableThatExistsIsToleratedOnRequest) {
  kernel.refuse(RTM_NEWTFILTER, EINVAL);
  imq(true).add_ht({5, 256}, 1, true);
  EXPECT_EQ(kernel.summaries(),
            "RTM_NEWTFILTER CREATE ifindex 9 u32 table 5 bucket 0 node 0 parent 8000:0 prio 1\n");
}

TEST_F(AddressTreeTest, OneAddressOfTheDownload) {
  add(true, {"10.0.1.5"});
  const std::string requests = kernel.requests();
  EXPECT_EQ(requests.substr(requests.find("RTM_NEWTFILTER")), R"(RTM_NEWTFILTER REQUEST|ACK|CREATE
  family 0 ifindex 9
  handle table 4 bucket 0 node 0
  parent 8000:0
  info prio 1 protocol ip
  TCA_KIND "u32"
  TCA_OPTIONS
    TCA_U32_DIVISOR 256
RTM_NEWTFILTER REQUEST|ACK|CREATE
  family 0 ifindex 9
  handle table 2 bucket 1 node 0
  parent 8000:0
  info prio 1 protocol ip
  TCA_KIND "u32"
  TCA_OPTIONS
    TCA_U32_HASH table 2 bucket 1 node 0
    TCA_U32_LINK table 4 bucket 0 node 0
    TCA_U32_SEL
      flags 0
      hash mask ff at 16
      key 0/0 at 16 offmask 0
RTM_NEWTFILTER REQUEST|ACK|CREATE
  family 0 ifindex 9
  handle table 4 bucket 5 node 0
  parent 8000:0
  info prio 1 protocol ip
  TCA_KIND "u32"
  TCA_OPTIONS
    TCA_U32_CLASSID 8000:5
    TCA_U32_HASH table 4 bucket 5 node 0
    TCA_U32_SEL
      flags TERMINAL
      hash mask 0 at 0
      key a000105/ffffffff at 16 offmask 0
)");
}

TEST_F(AddressTreeTest, OneAddressOfTheUpload) {
  add(false, {"10.0.0.5"});
  EXPECT_EQ(kernel.values(), R"(RTM_NEWTCLASS CREATE ifindex 9 htb 8000:8005 parent 8000:8001
  rate 1250000 ceil 1250000 buffer 3750000 cbuffer 3750000 quantum 125000
RTM_NEWTFILTER CREATE ifindex 9 u32 table 20 bucket 0 node 0 parent 8000:0 prio 1
  DIVISOR 256
RTM_NEWTFILTER CREATE ifindex 9 u32 table 19 bucket 0 node 0 parent 8000:0 prio 1
  HASH table 19 bucket 0 node 0 LINK table 20 bucket 0 node 0 flags 0 hash mask ff at 12 key 0/0 at 12 offmask 0
RTM_NEWTFILTER CREATE ifindex 9 u32 table 20 bucket 5 node 0 parent 8000:0 prio 1
  CLASSID 8000:8005 HASH table 20 bucket 5 node 0 flags TERMINAL hash mask 0 at 0 key a000005/ffffffff at 12 offmask 0
)");
}

// Same table, same last octet: node 0 of the bucket is the first one's.
TEST_F(AddressTreeTest, ASecondAddressInABucketLetsTheKernelNumberIt) {
  add(true, {"10.0.1.5", "10.0.17.5"});
  EXPECT_TRUE(kernel.values().ends_with(R"(
RTM_NEWTFILTER CREATE ifindex 9 u32 parent 8000:0 prio 1
  CLASSID 8000:5 HASH table 4 bucket 5 node 0 flags TERMINAL hash mask 0 at 0 key a001105/ffffffff at 16 offmask 0
)"));
}

// The table is accepted; then the kernel refuses the handle of bucket 0 for the link, and for the
// address.
TEST_F(AddressTreeTest, AHandleOfBucketZeroIsSentAgainWithout) {
  for (const int error : {0, EINVAL, 0, EINVAL, 0}) kernel.refuse(RTM_NEWTFILTER, error);
  add(true, {"10.0.16.0"});
  const std::string link =
      "  HASH table 2 bucket 0 node 0 LINK table 3 bucket 0 node 0 flags 0 hash mask ff at 16 "
      "key 0/0 at 16 offmask 0\n";
  const std::string address =
      "  CLASSID 8000:5 HASH table 3 bucket 0 node 0 flags TERMINAL hash mask 0 at 0 "
      "key a001000/ffffffff at 16 offmask 0\n";
  const std::string filter = "RTM_NEWTFILTER CREATE ifindex 9 u32 ";
  const std::string place = "parent 8000:0 prio 1\n";
  const std::string values = kernel.values();
  EXPECT_EQ(values.substr(values.find(filter)),
            filter + "table 3 bucket 0 node 0 " + place + "  DIVISOR 256\n" +  //
                filter + "table 2 bucket 0 node 0 " + place + link +           //
                filter + place + link +                                        //
                filter + "table 3 bucket 0 node 0 " + place + address +        //
                filter + place + address);
}

TEST_F(DeviceTest, TheTariffsOfTheImqShareOneTree) {
  const auto set = tariffs({tariff("a", 4, kTenMbit, {"10.0.1.5"}, quenby::kQdiscSfq),
                            tariff("b", 5, kTenMbit, {}, quenby::kQdiscSfq),
                            tariff("c", 6, -2, {"10.0.1.7"}, quenby::kQdiscSfq),
                            tariff("d", 7, kTenMbit, {"10.0.17.5"}, quenby::kQdiscPfifo)});
  imq(true).create_leaves(line(kTenMbit, kTenMbit), set);
  EXPECT_EQ(kernel.summaries(), std::string(kDownloadBase) +
                                    R"(RTM_NEWTCLASS CREATE ifindex 9 htb 8000:4 parent 8000:1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 4 bucket 0 node 0 parent 8000:0 prio 1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 2 bucket 1 node 0 parent 8000:0 prio 1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 4 bucket 5 node 0 parent 8000:0 prio 1
RTM_NEWQDISC CREATE ifindex 9 sfq 8004:0 parent 8000:4
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:7 parent 8000:1
RTM_NEWTFILTER CREATE ifindex 9 u32 parent 8000:0 prio 1
RTM_NEWQDISC CREATE ifindex 9 pfifo 8007:0 parent 8000:7
)");
}

TEST_F(DeviceTest, TheImqUploadStartsAtTable20) {
  auto t = tariff("a", 4, kTenMbit, {"10.0.0.5"}, quenby::kQdiscPfifo);
  t.upload.burst_size = 375'000;
  imq(false).create_leaves(line(kTenMbit, kTenMbit), tariffs({t}));
  EXPECT_EQ(kernel.summaries(),
            R"(RTM_NEWTFILTER CREATE ifindex 9 u32 table 19 bucket 0 node 0 parent 8000:0 prio 1
RTM_NEWTFILTER CREATE ifindex 9 u32 parent 8000:0 prio 1
RTM_NEWTCLASS CREATE ifindex 9 htb 8000:8004 parent 8000:8001
RTM_NEWTFILTER CREATE ifindex 9 u32 table 20 bucket 0 node 0 parent 8000:0 prio 1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 19 bucket 0 node 0 parent 8000:0 prio 1
RTM_NEWTFILTER CREATE ifindex 9 u32 table 20 bucket 5 node 0 parent 8000:0 prio 1
RTM_NEWQDISC CREATE ifindex 9 pfifo ce24:0 parent 8000:8004
RTM_NEWTCLASS REPLACE ifindex 9 htb 8000:8001 parent 8000:0
)");
}

}  // namespace
}  // namespace golden
