#include "tc/redirection.h"

#include <linux/if_ether.h>
#include <linux/pkt_cls.h>
#include <linux/rtnetlink.h>
#include <linux/tc_act/tc_mirred.h>
#include <netlink/attr.h>
#include <netlink/errno.h>

#include <netinet/in.h>
#include <optional>

#include "cli/system.h"
#include "tc/attributes.h"
#include "tc/handles.h"
#include "tc/links.h"
#include "tc/listing.h"
#include "tc/nl_error.h"

namespace quenby {
namespace {

// Whether the selector has one key, whose mask lets every packet through.
bool matches_all(nlattr* attribute) {
  tc_u32_key key;
  if (attribute == nullptr || nla_len(attribute) < int{sizeof(tc_u32_sel) + sizeof(key)})
    return false;
  const auto* const selector = static_cast<const tc_u32_sel*>(nla_data(attribute));
  std::memcpy(&key, static_cast<const char*>(nla_data(attribute)) + sizeof(tc_u32_sel),
              sizeof(key));
  return selector->nkeys == 1 && key.mask == 0;
}

// The device that an action redirects to; nothing for another action.
std::optional<int> target_of_action(nlattr* attribute) {
  const Nest<TCA_ACT_MAX> action(attribute);
  if (!has_kind(action[TCA_ACT_KIND], "mirred")) return {};
  const Nest<TCA_MIRRED_MAX> options(action[TCA_ACT_OPTIONS]);
  const auto mirred = value<tc_mirred>(options[TCA_MIRRED_PARMS]);
  if (!mirred || mirred->eaction != TCA_EGRESS_REDIR) return {};
  return static_cast<int>(mirred->ifindex);
}

// What the actions of a filter come to; no target for those that redirect to no device.
struct Actions {
  std::optional<int> target;
  bool restore_mark = false;
};

Actions read_actions(nlattr* attribute) {
  const Nest<TCA_ACT_MAX_PRIO> list(attribute);
  Actions actions;
  for (nlattr* const action : list.members) {
    if (has_kind(Nest<TCA_ACT_MAX>(action)[TCA_ACT_KIND], "connmark")) actions.restore_mark = true;
    actions.target = target_of_action(action);
    if (actions.target) break;
  }
  return actions;
}

bool is_ip6(const tcmsg& header, nlattr* kind) {
  return header.tcm_info == TC_H_MAKE(kIp6RedirectionPrio << 16, htons(ETH_P_IPV6)) &&
         has_kind(kind, "u32");
}

// The actions of a filter of our own shape.
Actions actions_of_filter(const tcmsg& header, nlattr* kind, nlattr* attribute) {
  const std::uint32_t ours = TC_H_MAKE(kRedirectionPrio << 16, htons(ETH_P_IP));
  if (header.tcm_info != ours || !has_kind(kind, "u32")) return {};
  const Nest<TCA_U32_MAX> options(attribute);
  if (!matches_all(options[TCA_U32_SEL])) return {};
  return read_actions(options[TCA_U32_ACT]);
}

// u32 lists its hash tables too, and every kind lists itself once without a handle.
bool is_filter(const tcmsg& header, nlattr* kind) {
  if (header.tcm_handle == 0) return false;
  return !has_kind(kind, "u32") || TC_U32_KEY(header.tcm_handle) != 0;
}

}  // namespace

std::string redirect_command(const std::string& wan, bool restore_mark) {
  return "/sbin/tc filter add dev " + shell_word(wan) + " parent " + hex(kIngressMajor) +
         ": protocol ip pref " + std::to_string(kRedirectionPrio) + " u32 match u32 0 0 " +
         (restore_mark ? "action connmark " : "") + "action mirred egress redirect dev " + kIfbName;
}

std::vector<std::uint32_t> IngressFilters::handles_for(int ifindex) const {
  std::vector<std::uint32_t> handles;
  for (const Redirection& redirection : redirections) {
    if (redirection.target == 0 || redirection.target == ifindex)
      handles.push_back(redirection.handle);
  }
  return handles;
}

std::vector<StandingIp6Redirection> IngressFilters::ip6_for(int ifindex) const {
  std::vector<StandingIp6Redirection> fitting;
  for (const StandingIp6Redirection& one : ip6) {
    if (one.filter.gathers || one.target == 0 || one.target == ifindex) fitting.push_back(one);
  }
  return fitting;
}

void note_filter(const nlmsghdr* message, int ifindex, IngressFilters& filters) {
  nlattr* members[TCA_MAX + 1];
  if (message->nlmsg_type != RTM_NEWTFILTER ||
      nlmsg_parse(const_cast<nlmsghdr*>(message), sizeof(tcmsg), members, TCA_MAX, nullptr) < 0)
    return;
  const tcmsg& header = *static_cast<const tcmsg*>(nlmsg_data(message));
  if (header.tcm_ifindex != ifindex || header.tcm_parent != kIngressHandle) return;
  if (!is_filter(header, members[TCA_KIND])) return;
  if (is_ip6(header, members[TCA_KIND])) {
    const auto ours = read_ip6_redirection(ifindex, header.tcm_handle, members[TCA_OPTIONS]);
    if (ours) return filters.ip6.push_back(*ours);
  }
  const Actions actions = actions_of_filter(header, members[TCA_KIND], members[TCA_OPTIONS]);
  if (actions.target) {
    filters.redirections.push_back({header.tcm_handle, *actions.target, actions.restore_mark});
  } else {
    filters.others = true;
  }
}

IngressFilters ingress_filters(nl_sock* sock, int ifindex) {
  tcmsg header{};
  header.tcm_ifindex = ifindex;
  header.tcm_parent = kIngressHandle;
  IngressFilters filters;
  const int result = list_objects(
      sock, RTM_GETTFILTER, header,
      [&filters, ifindex](const nlmsghdr* message) { note_filter(message, ifindex, filters); });
  if (result < 0) nl_fatal("Cannot allocate rtnl_cls_cache", result);
  return filters;
}

}  // namespace quenby
