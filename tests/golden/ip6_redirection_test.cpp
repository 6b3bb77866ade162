#include "tc/ip6_redirection.h"

#include <linux/if_ether.h>
#include <linux/pkt_cls.h>
#include <linux/rtnetlink.h>
#include <linux/tc_act/tc_mirred.h>
#include <netlink/attr.h>

#include <cstddef>
#include <cstring>
#include <netinet/in.h>

#include "tc/redirection.h"
#include "tests/golden/device_test.h"

// What is found of IPv6 in ingress qdiscs.
namespace golden {
namespace {

using quenby::HeaderWord;
using quenby::IngressFilters;
using quenby::Ip6Redirection;
using quenby::MsgPtr;

struct ListedAction {
  std::string kind;
  int eaction = 0;
  int target = 0;
};

struct Listed {
  std::vector<HeaderWord> words = {{0, 0, 0}};
  std::vector<ListedAction> actions = {{"connmark"}, {"mirred", TCA_EGRESS_REDIR, kIfbIndex}};
  unsigned prio = 2;
  std::uint16_t protocol = ETH_P_IPV6;
  std::uint32_t handle = 0x80000800;
};

template <typename T>
void put(const MsgPtr& msg, int attribute, const T& value) {
  nla_put(msg.get(), attribute, sizeof(value), &value);
}

void put_selector(const MsgPtr& msg, const std::vector<HeaderWord>& words) {
  std::string payload(sizeof(tc_u32_sel), '\0');
  payload[offsetof(tc_u32_sel, nkeys)] = static_cast<char>(words.size());
  for (const HeaderWord& word : words) {
    tc_u32_key key{};
    key.val = htonl(word.value);
    key.mask = htonl(word.mask);
    key.off = word.offset;
    payload.append(reinterpret_cast<const char*>(&key), sizeof(key));
  }
  nla_put(msg.get(), TCA_U32_SEL, static_cast<int>(payload.size()), payload.data());
}

void put_action(const MsgPtr& msg, int number, const ListedAction& listed) {
  nlattr* const action = nla_nest_start(msg.get(), number);
  nla_put_string(msg.get(), TCA_ACT_KIND, listed.kind.c_str());
  nlattr* const options = nla_nest_start(msg.get(), TCA_ACT_OPTIONS);
  tc_mirred mirred{};
  mirred.eaction = listed.eaction;
  mirred.ifindex = static_cast<std::uint32_t>(listed.target);
  if (listed.kind == "mirred") put(msg, TCA_MIRRED_PARMS, mirred);
  nla_nest_end(msg.get(), options);
  nla_nest_end(msg.get(), action);
}

void note(const Listed& listed, IngressFilters& filters) {
  const MsgPtr msg(nlmsg_alloc_simple(RTM_NEWTFILTER, NLM_F_MULTI));
  tcmsg header{};
  header.tcm_ifindex = kWanIndex;
  header.tcm_handle = listed.handle;
  header.tcm_parent = 0xffff0000;
  header.tcm_info = TC_H_MAKE(listed.prio << 16, htons(listed.protocol));
  nlmsg_append(msg.get(), &header, sizeof(header), NLMSG_ALIGNTO);
  nla_put_string(msg.get(), TCA_KIND, "u32");
  nlattr* const options = nla_nest_start(msg.get(), TCA_OPTIONS);
  put_selector(msg, listed.words);
  nlattr* const actions = nla_nest_start(msg.get(), TCA_U32_ACT);
  int number = 0;
  for (const ListedAction& action : listed.actions) put_action(msg, ++number, action);
  nla_nest_end(msg.get(), actions);
  nla_nest_end(msg.get(), options);
  quenby::note_filter(nlmsg_hdr(msg.get()), kWanIndex, filters);
}

IngressFilters found_in(const Listed& listed) {
  IngressFilters filters;
  note(listed, filters);
  return filters;
}

// As the kernel lists what the commands make.
std::vector<Listed> as_listed(const std::vector<Ip6Redirection>& filters) {
  std::vector<Listed> list;
  std::uint32_t handle = 0x80000800;
  for (const Ip6Redirection& filter : filters) {
    Listed& listed = list.emplace_back();
    listed.words = filter.words;
    listed.handle = handle++;
    listed.actions.clear();
    if (filter.restores_mark) listed.actions.push_back({"connmark"});
    if (filter.gathers) listed.actions.push_back({"ct"});
    listed.actions.push_back(filter.gathers ? ListedAction{"mirred", TCA_INGRESS_REDIR, kWanIndex}
                                            : ListedAction{"mirred", TCA_EGRESS_REDIR, kIfbIndex});
  }
  return list;
}

TEST(Ip6Redirections, AreReadAsTheyAreMade) {
  for (const bool marks : {true, false}) {
    const std::vector<Ip6Redirection> wanted = quenby::ip6_redirections(marks);
    IngressFilters filters;
    for (const Listed& listed : as_listed(wanted)) note(listed, filters);
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
  const std::string gather = " action ct action mirred ingress redirect dev 'a b' && ";
  const std::string then_fragment = " match u32 0x2c000000 0xff000000 at 40";
  EXPECT_EQ(quenby::ip6_redirect_commands("a b", true),
            start + " match u32 0x2c00 0xff00 at 4" + gather +                   //
                start + " match u32 0x0 0xff00 at 4" + then_fragment + gather +  //
                start + " match u32 0x2b00 0xff00 at 4" + then_fragment + gather + start +
                " match u32 0x3c00 0xff00 at 4" + then_fragment + gather + start +
                " match u32 0x0 0x0 at 0 action connmark action mirred egress redirect"
                " dev ifb_ingr");
}

TEST(Ip6Redirections, AnythingElseIsSomebodyElses) {
  const ListedAction drop{"gact"};
  std::vector<Listed> others(7);
  others[0].prio = 3;
  others[1].protocol = ETH_P_ALL;
  others[2].actions = {drop};
  others[3].actions = {{"connmark"}, {"mirred", TCA_INGRESS_REDIR, kIfbIndex}};
  others[4].actions = {{"ct"}, {"mirred", TCA_INGRESS_REDIR, kImqIndex}};
  others[5].actions = {{"ct"}, {"mirred", TCA_EGRESS_REDIR, kWanIndex}};
  others[6].actions = {{"connmark"}, drop};
  for (const Listed& other : others) {
    SCOPED_TRACE(&other - others.data());
    const IngressFilters filters = found_in(other);
    EXPECT_TRUE(filters.ip6.empty());
    EXPECT_TRUE(filters.others);
  }
}

TEST(Ip6Redirections, ThoseOfADeviceAreItsOwnAndTheDeadOnes) {
  IngressFilters filters;
  for (const int target : {kIfbIndex, 0, kImqIndex}) {
    Listed listed;
    listed.actions.back().target = target;
    note(listed, filters);
  }
  note(as_listed(quenby::ip6_redirections(true)).front(), filters);
  const auto fitting = filters.ip6_for(kIfbIndex);
  ASSERT_EQ(fitting.size(), 3U);
  EXPECT_EQ(fitting[1].target, 0);
  EXPECT_TRUE(fitting[2].filter.gathers);
}

}  // namespace
}  // namespace golden
