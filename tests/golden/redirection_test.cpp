#include "tc/redirection.h"

#include <cerrno>

#include "tests/golden/device_test.h"

// What is found in ingress qdiscs, and how a teardown takes our part of it away.
namespace golden {
namespace {

using quenby::IngressFilters;
using quenby::Redirection;

constexpr std::uint32_t kHandle = 0x80000800;

const ListedRedirection kOurs{kWanIndex, kIfbIndex};
const ListedFilter kTable{kWanIndex, 0x80000000, 0, "u32", kIngress};
const ListedFilter kKind{kWanIndex, 0, 0, "u32", kIngress};
const ListedFilter kForeign{kWanIndex, 1, 0, "matchall", kIngress};

template <typename Change>
ListedRedirection but(Change change) {
  ListedRedirection listed = kOurs;
  change(listed);
  return listed;
}

IngressFilters found_in(const quenby::MsgPtr& message) {
  IngressFilters filters;
  quenby::note_filter(nlmsg_hdr(message.get()), kWanIndex, filters);
  return filters;
}

TEST(IngressFilters, HaveOurRedirectionToADeletedDeviceToo) {
  for (const int target : {kIfbIndex, 0}) {
    const IngressFilters filters =
        found_in(redirection_message(but([target](ListedRedirection& r) { r.target = target; })));
    EXPECT_EQ(filters.redirections, (std::vector<Redirection>{{kHandle, target, true}}));
    EXPECT_FALSE(filters.others);
  }
}

TEST(IngressFilters, AnythingElseIsSomebodyElses) {
  const ListedRedirection others[] = {
      but([](ListedRedirection& r) { r.prio = 2; }),
      but([](ListedRedirection& r) { r.protocol = ETH_P_ALL; }),
      but([](ListedRedirection& r) { r.words.emplace_back(); }),
      but([](ListedRedirection& r) { r.words[0].mask = 0xff; }),
      but([](ListedRedirection& r) { r.actions[1].kind = "gact"; }),
      but([](ListedRedirection& r) { r.actions[1].eaction = TCA_EGRESS_MIRROR; }),
      but([](ListedRedirection& r) { r.actions[1].eaction = TCA_INGRESS_REDIR; }),
  };
  for (const ListedRedirection& other : others) {
    SCOPED_TRACE(&other - others);
    const IngressFilters filters = found_in(redirection_message(other));
    EXPECT_TRUE(filters.redirections.empty());
    EXPECT_TRUE(filters.others);
  }
  EXPECT_TRUE(found_in(filter_message(kForeign)).others);
}

TEST(IngressFilters, TablesAndOtherPlacesAreNoFilters) {
  const ListedFilter elsewhere{kWanIndex, kHandle, 0x80000005, "u32", kHtb};
  const ListedFilter of_another{kImqIndex, kHandle, 0x80000005, "u32", kIngress};
  for (const ListedFilter& listed : {kTable, kKind, elsewhere, of_another}) {
    const IngressFilters filters = found_in(filter_message(listed));
    EXPECT_TRUE(filters.redirections.empty());
    EXPECT_FALSE(filters.others);
  }
  EXPECT_FALSE(found_in(link_message("eth1", kWanIndex)).others);
}

TEST(IngressFilters, HandlesAreThoseThatFeedTheDeviceOrNone) {
  const IngressFilters filters{{{1, kIfbIndex}, {2, 0}, {3, kImqIndex}}, false};
  EXPECT_EQ(filters.handles_for(kIfbIndex), (std::vector<std::uint32_t>{1, 2}));
  EXPECT_EQ(filters.handles_for(0), std::vector<std::uint32_t>{2});
}

const std::string kLook = "RTM_GETTFILTER DUMP\n";
const std::string kNoRoot = "RTM_DELQDISC ifindex 3 htb 8000:0 parent root\n";
const std::string kNoIngress = "RTM_DELQDISC ifindex 3 ingress ffff:0 parent ingress\n";
const std::string kNoFilter =
    "RTM_DELTFILTER ifindex 3 u32 table 2048 bucket 0 node 2048 parent ffff:0 prio 1\n";
const std::string kNoLink = "RTM_DELLINK \"ifb_ingr\"\nRTM_GETLINK DUMP\n";

// Links are listed by name: eth1, ifb_ingr, imq0.
class Teardown : public DeviceTest {
 protected:
  std::string requests() {
    ifb().teardown(quenby::GlobalSet());
    return kernel.summaries();
  }
};

TEST_F(Teardown, LooksAtEveryLink) { EXPECT_EQ(requests(), kLook + kLook + kLook + kNoLink); }

TEST_F(Teardown, AsksForTheFiltersOfAnIngressQdisc) {
  kernel.has_no_links();
  kernel.has_link("eth1", kWanIndex);
  ifb().teardown(quenby::GlobalSet());
  EXPECT_EQ(kernel.requests(), R"(RTM_GETTFILTER REQUEST|ACK|DUMP
  family 0 ifindex 3
  handle none
  parent ffff:0
  info prio 0 protocol 0x0
)");
}

TEST_F(Teardown, TakesTreeThenRedirectionThenDevice) {
  kernel.has_filter(kKind);
  kernel.has_filter(kTable);
  kernel.has_redirection(kOurs);
  EXPECT_EQ(requests(), kLook + kNoRoot + kNoIngress + kLook + kLook + kNoLink);
}

TEST_F(Teardown, LeavesTheFiltersOfSomebodyElse) {
  kernel.has_redirection(kOurs);
  kernel.has_filter(kForeign);
  EXPECT_EQ(requests(), kLook + kNoRoot + kNoFilter + kLook + kLook + kNoLink);
}

TEST_F(Teardown, LeavesARedirectionToAnotherDevice) {
  kernel.has_redirection(but([](ListedRedirection& r) { r.target = kImqIndex; }));
  EXPECT_EQ(requests(), kLook + kLook + kLook + kNoLink);
}

TEST_F(Teardown, FindsADeadRedirectionWithoutTheDevice) {
  kernel.has_no_links();
  kernel.has_link("eth1", kWanIndex);
  kernel.has_redirection(but([](ListedRedirection& r) { r.target = 0; }));
  EXPECT_EQ(requests(), kLook + kNoRoot + kNoIngress);
}

TEST_F(Teardown, GoesOnWhereTheTreeIsGoneAlready) {
  for (const int error : {ENOENT, EINVAL, ENODEV}) {
    kernel.has_link("ifb_ingr", kIfbIndex);
    kernel.has_redirection(kOurs);
    kernel.refuse(RTM_DELQDISC, error);
    EXPECT_TRUE(requests().starts_with(kLook + kNoRoot + kNoIngress));
  }
}

}  // namespace
}  // namespace golden
