#include "tests/golden/replies.h"

#include <arpa/inet.h>
#include <linux/if.h>
#include <linux/if_ether.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_conntrack.h>
#include <linux/pkt_cls.h>
#include <linux/rtnetlink.h>
#include <linux/tc_act/tc_skbedit.h>
#include <netlink/attr.h>

#include <cstddef>

namespace golden {
namespace {

using quenby::MsgPtr;

template <typename Header>
MsgPtr listed(int type, const Header& header) {
  MsgPtr msg(nlmsg_alloc_simple(type, NLM_F_MULTI));
  Header copy = header;
  nlmsg_append(msg.get(), &copy, sizeof(copy), NLMSG_ALIGNTO);
  return msg;
}

template <typename T>
void put(const MsgPtr& msg, int attribute, const T& value) {
  nla_put(msg.get(), attribute, sizeof(value), &value);
}

void put_selector(const MsgPtr& msg, const std::vector<quenby::HeaderWord>& words) {
  std::string payload(sizeof(tc_u32_sel), '\0');
  payload[offsetof(tc_u32_sel, nkeys)] = static_cast<char>(words.size());
  for (const quenby::HeaderWord& word : words) {
    tc_u32_key key{};
    key.val = htonl(word.value);
    key.mask = htonl(word.mask);
    key.off = word.offset;
    payload.append(reinterpret_cast<const char*>(&key), sizeof(key));
  }
  nla_put(msg.get(), TCA_U32_SEL, static_cast<int>(payload.size()), payload.data());
}

void put_action(const MsgPtr& msg, int number, const ListedAction& listed, int target) {
  nlattr* const action = nla_nest_start(msg.get(), number);
  nla_put_string(msg.get(), TCA_ACT_KIND, listed.kind.c_str());
  nlattr* const options = nla_nest_start(msg.get(), TCA_ACT_OPTIONS);
  if (listed.kind == "skbedit") {
    put(msg, TCA_SKBEDIT_MARK, listed.mark);
    put(msg, TCA_SKBEDIT_MASK, listed.mask);
  } else {
    tc_mirred mirred{};
    mirred.eaction = listed.eaction;
    mirred.ifindex = static_cast<std::uint32_t>(target);
    put(msg, TCA_MIRRED_PARMS, mirred);
  }
  nla_nest_end(msg.get(), options);
  nla_nest_end(msg.get(), action);
}

void put_source(const MsgPtr& msg, std::uint32_t source) { put(msg, CTA_IP_V4_SRC, source); }
void put_source(const MsgPtr& msg, const quenby::Ip6Address& source) {
  put(msg, CTA_IP_V6_SRC, source);
}

template <typename Address>
void put_tuple(const MsgPtr& msg, int attribute, const Address& source) {
  nlattr* const tuple = nla_nest_start(msg.get(), attribute | NLA_F_NESTED);
  nlattr* const ip = nla_nest_start(msg.get(), CTA_TUPLE_IP | NLA_F_NESTED);
  put_source(msg, source);
  nla_nest_end(msg.get(), ip);
  nla_nest_end(msg.get(), tuple);
}

MsgPtr counted_message(int type, const char* kind, const ListedClass& counted) {
  tcmsg header{};
  header.tcm_ifindex = counted.ifindex;
  header.tcm_handle = counted.handle;
  header.tcm_parent = counted.parent;
  MsgPtr msg = listed(type, header);
  nla_put_string(msg.get(), TCA_KIND, kind);
  nlattr* const counters = nla_nest_start(msg.get(), TCA_STATS2);
  put(msg, TCA_STATS_BASIC, counted.traffic);
  put(msg, TCA_STATS_RATE_EST, counted.rate);
  put(msg, TCA_STATS_QUEUE, counted.queue);
  if (counted.packets != 0) put(msg, TCA_STATS_PKT64, counted.packets);
  nla_nest_end(msg.get(), counters);
  return msg;
}

template <typename Address>
MsgPtr connection_message(unsigned char family, const ListedConnectionOf<Address>& connection) {
  nfgenmsg header{};
  header.nfgen_family = family;
  MsgPtr msg = listed(NFNL_SUBSYS_CTNETLINK << 8 | IPCTNL_MSG_CT_NEW, header);
  put_tuple(msg, CTA_TUPLE_ORIG, connection.source);
  put_tuple(msg, CTA_TUPLE_REPLY, connection.reply_source);
  nla_put_u32(msg.get(), CTA_MARK, htonl(connection.mark));
  if (connection.zone != 0) nla_put_u16(msg.get(), CTA_ZONE, htons(connection.zone));
  return msg;
}

}  // namespace

MsgPtr link_message(const std::string& name, int ifindex) {
  ifinfomsg header{};
  header.ifi_index = ifindex;
  header.ifi_flags = IFF_UP;
  MsgPtr msg = listed(RTM_NEWLINK, header);
  nla_put_string(msg.get(), IFLA_IFNAME, name.c_str());
  nla_put_u32(msg.get(), IFLA_MTU, 1500);
  return msg;
}

MsgPtr root_message(int ifindex, std::uint32_t handle) {
  tcmsg header{};
  header.tcm_ifindex = ifindex;
  header.tcm_handle = handle;
  header.tcm_parent = TC_H_ROOT;
  MsgPtr msg = listed(RTM_NEWQDISC, header);
  nla_put_string(msg.get(), TCA_KIND, handle == 0 ? "noqueue" : "htb");
  return msg;
}

MsgPtr filter_message(const ListedFilter& filter) {
  tcmsg header{};
  header.tcm_ifindex = filter.ifindex;
  header.tcm_handle = filter.handle;
  header.tcm_parent = filter.parent;
  header.tcm_info = TC_H_MAKE(1U << 16, htons(ETH_P_IP));
  MsgPtr msg = listed(RTM_NEWTFILTER, header);
  nla_put_string(msg.get(), TCA_KIND, filter.kind.c_str());
  if (filter.classid == 0) return msg;
  nlattr* const options = nla_nest_start(msg.get(), TCA_OPTIONS);
  nla_put_u32(msg.get(), TCA_U32_CLASSID, filter.classid);
  nla_nest_end(msg.get(), options);
  return msg;
}

MsgPtr redirection_message(const ListedRedirection& redirection) {
  tcmsg header{};
  header.tcm_ifindex = redirection.ifindex;
  header.tcm_handle = redirection.handle;
  header.tcm_parent = kIngress;
  header.tcm_info = TC_H_MAKE(redirection.prio << 16, htons(redirection.protocol));
  MsgPtr msg = listed(RTM_NEWTFILTER, header);
  nla_put_string(msg.get(), TCA_KIND, "u32");
  nlattr* const options = nla_nest_start(msg.get(), TCA_OPTIONS);
  put_selector(msg, redirection.words);
  if (redirection.mask != 0)
    put(msg, TCA_U32_MARK, tc_u32_mark{redirection.mark, redirection.mask, 0});
  nlattr* const actions = nla_nest_start(msg.get(), TCA_U32_ACT);
  int number = 0;
  for (const ListedAction& action : redirection.actions)
    put_action(msg, ++number, action, redirection.target);
  nla_nest_end(msg.get(), actions);
  nla_nest_end(msg.get(), options);
  return msg;
}

MsgPtr class_message(const ListedClass& listed) {
  return counted_message(RTM_NEWTCLASS, "htb", listed);
}

MsgPtr leaf_message(const ListedClass& listed) {
  return counted_message(RTM_NEWQDISC, "pfifo", listed);
}

MsgPtr connection_message(const ListedConnection& connection) {
  return connection_message(AF_INET, connection);
}

MsgPtr connection_message(const ListedIp6Connection& connection) {
  return connection_message(AF_INET6, connection);
}

MsgPtr done_message() {
  const int status = 0;
  return listed(NLMSG_DONE, status);
}

}  // namespace golden
