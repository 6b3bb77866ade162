#include "tc/ip6_redirection.h"

#include <linux/if_ether.h>

#include "tc/redirection.h"
#include "tests/golden/device_test.h"

// What is found of IPv6 in ingress qdiscs.
namespace golden {
namespace {

using quenby::IngressFilters;
using quenby::Ip6Redirection;

constexpr std::uint32_t kMask = 0x80003fff;
const ListedAction kMarking{"skbedit", 0, 1, kMask};

// A redirection of IPv6 on the WAN device.
ListedRedirection ip6_listed(int target = kIfbIndex) {
  return {kWanIndex, target, 0x80000800, 2, ETH_P_IPV6};
}

void note(const ListedRedirection& listed, IngressFilters& filters) {
  quenby::note_filter(nlmsg_hdr(redirection_message(listed).get()), kWanIndex, filters);
}

// As the kernel lists what the commands make.
std::vector<ListedRedirection> as_listed(const std::vector<Ip6Redirection>& filters) {
  std::vector<ListedRedirection> list;
  std::uint32_t handle = 0x80000800;
  for (const Ip6Redirection& filter : filters) {
    ListedRedirection& listed =
        list.emplace_back(ip6_listed(filter.gathers ? kWanIndex : kIfbIndex));
    listed.words = filter.words;
    listed.handle = handle++;
    listed.actions.clear();
    if (filter.restores_mark) listed.actions.push_back({"connmark"});
    if (filter.gathers) {
      listed.mask = kMask;
      listed.actions.insert(listed.actions.end(), {{"ct"}, kMarking});
    }
    listed.actions.push_back({"mirred", filter.gathers ? TCA_INGRESS_REDIR : TCA_EGRESS_REDIR});
  }
  return list;
}

TEST(Ip6Redirections, AreReadAsTheyAreMade) {
  for (const bool marks : {true, false}) {
    const std::vector<Ip6Redirection> wanted = quenby::ip6_redirections(marks);
    IngressFilters filters;
    for (const ListedRedirection& listed : as_listed(wanted)) note(listed, filters);
    ASSERT_EQ(filters.ip6.size(), wanted.size());
    for (std::size_t i = 0; i < wanted.size(); ++i) EXPECT_EQ(filters.ip6[i].filter, wanted[i]);
    EXPECT_EQ(filters.ip6.front().handle, 0x80000800);
    EXPECT_EQ(filters.ip6.back().target, kIfbIndex);
    EXPECT_FALSE(filters.others);
    EXPECT_TRUE(filters.redirections.empty());
  }
}

TEST(Ip6Redirections, TheCommandsPutFragmentsTogetherFirst) {
  const std::string start = "/sbin/tc filter add dev 'a b' parent ffff: protocol ipv6 pref 2 u32";
  const std::string gather =
      " 0xff00 at 4 action ct action skbedit mark 0x1/0x80003fff action mirred ingress redirect "
      "dev 'a b' && ";
  const std::string unmarked = start + " match mark 0x0 0x80003fff match u32 ";
  EXPECT_EQ(quenby::ip6_redirect_commands("a b", true),
            unmarked + "0x2c00" + gather +                                             //
                unmarked + "0x0" + gather + unmarked + "0x2b00" + gather +             //
                unmarked + "0x3300" + gather + unmarked + "0x3c00" + gather + start +  //
                " match u32 0x0 0x0 at 0 action connmark action mirred egress redirect"
                " dev ifb_ingr");
}

TEST(Ip6Redirections, AnythingElseIsSomebodyElses) {
  const ListedAction drop{"gact"};
  const ListedRedirection gather = as_listed(quenby::ip6_redirections(true)).front();
  std::vector<ListedRedirection> others(7, ip6_listed());
  others[0].prio = 3;
  others[1].protocol = ETH_P_ALL;
  others[2].actions = {drop};
  others[3].actions[1].eaction = TCA_INGRESS_REDIR;
  others[4].mask = kMask;
  others[5].actions = {};
  others[6].actions = {{"connmark"}, drop};
  others.insert(others.end(), 7, gather);
  others[7].target = kImqIndex;
  others[8].actions.back().eaction = TCA_EGRESS_REDIR;
  others[9].mark = 1;
  others[10].mask = 0xffffffff;
  others[11].actions[1].mark = 2;
  others[12].actions[1].mask = 1;
  others[13].actions.erase(others[13].actions.begin());
  for (const ListedRedirection& other : others) {
    SCOPED_TRACE(&other - others.data());
    IngressFilters filters;
    note(other, filters);
    EXPECT_TRUE(filters.ip6.empty());
    EXPECT_TRUE(filters.others);
  }
}

TEST(Ip6Redirections, ThoseOfADeviceAreItsOwnAndTheDeadOnes) {
  IngressFilters filters;
  for (const int target : {kIfbIndex, 0, kImqIndex}) note(ip6_listed(target), filters);
  note(as_listed(quenby::ip6_redirections(true)).front(), filters);
  const auto fitting = filters.ip6_for(kIfbIndex);
  ASSERT_EQ(fitting.size(), 3U);
  EXPECT_EQ(fitting[1].target, 0);
  EXPECT_TRUE(fitting[2].filter.gathers);
}

}  // namespace
}  // namespace golden
