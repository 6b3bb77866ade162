#include "tc/redirection.h"

#include <linux/if_ether.h>
#include <linux/pkt_cls.h>
#include <linux/rtnetlink.h>
#include <linux/tc_act/tc_mirred.h>
#include <netlink/attr.h>
#include <netlink/errno.h>

#include <algorithm>
#include <cstring>
#include <netinet/in.h>
#include <optional>

#include "cli/system.h"
#include "tc/handles.h"
#include "tc/links.h"
#include "tc/nl_error.h"

namespace quenby {
namespace {

// The start of an attribute as a plain value; nothing when it is missing or shorter.
template <typename T>
std::optional<T> value(nlattr* attribute) {
  if (attribute == nullptr || nla_len(attribute) < static_cast<int>(sizeof(T))) return {};
  T result;
  std::memcpy(&result, nla_data(attribute), sizeof(T));
  return result;
}

// The members of a nested attribute by their numbers, those that are missing null.
template <std::size_t Max>
struct Nest {
  explicit Nest(nlattr* attribute) {
    if (attribute == nullptr || nla_parse_nested(members, int{Max}, attribute, nullptr) < 0)
      std::fill(std::begin(members), std::end(members), nullptr);
  }
  nlattr* operator[](std::size_t number) const { return members[number]; }

  nlattr* members[Max + 1];
};

bool has_kind(nlattr* attribute, const char* kind) {
  return attribute != nullptr && nla_strcmp(attribute, kind) == 0;
}

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

std::optional<int> target_of_actions(nlattr* attribute) {
  const Nest<TCA_ACT_MAX_PRIO> actions(attribute);
  for (nlattr* const action : actions.members) {
    const std::optional<int> target = target_of_action(action);
    if (target) return target;
  }
  return {};
}

// The device that a filter of our own shape redirects to.
std::optional<int> target_of_filter(const tcmsg& header, nlattr* kind, nlattr* attribute) {
  const std::uint32_t ours = TC_H_MAKE(kRedirectionPrio << 16, htons(ETH_P_IP));
  if (header.tcm_info != ours || !has_kind(kind, "u32")) return {};
  const Nest<TCA_U32_MAX> options(attribute);
  if (!matches_all(options[TCA_U32_SEL])) return {};
  return target_of_actions(options[TCA_U32_ACT]);
}

// u32 lists its hash tables too, and every kind lists itself once without a handle.
bool is_filter(const tcmsg& header, nlattr* kind) {
  if (header.tcm_handle == 0) return false;
  return !has_kind(kind, "u32") || TC_U32_KEY(header.tcm_handle) != 0;
}

struct Listing {
  int ifindex;
  IngressFilters filters;
};

int on_filter(nl_msg* msg, void* context) {
  auto& listing = *static_cast<Listing*>(context);
  note_filter(nlmsg_hdr(msg), listing.ifindex, listing.filters);
  return NL_OK;
}

int receive(nl_sock* sock, Listing& listing) {
  const CallbackPtr own(nl_socket_get_cb(sock));
  const CallbackPtr callbacks(nl_cb_clone(own.get()));
  if (callbacks == nullptr) return -NLE_NOMEM;
  nl_cb_set(callbacks.get(), NL_CB_VALID, NL_CB_CUSTOM, on_filter, &listing);
  return nl_recvmsgs(sock, callbacks.get());
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

void note_filter(const nlmsghdr* message, int ifindex, IngressFilters& filters) {
  nlattr* members[TCA_MAX + 1];
  if (message->nlmsg_type != RTM_NEWTFILTER ||
      nlmsg_parse(const_cast<nlmsghdr*>(message), sizeof(tcmsg), members, TCA_MAX, nullptr) < 0)
    return;
  const tcmsg& header = *static_cast<const tcmsg*>(nlmsg_data(message));
  if (header.tcm_ifindex != ifindex || header.tcm_parent != kIngressHandle) return;
  if (!is_filter(header, members[TCA_KIND])) return;
  const auto target = target_of_filter(header, members[TCA_KIND], members[TCA_OPTIONS]);
  if (target) {
    filters.redirections.push_back({header.tcm_handle, *target});
  } else {
    filters.others = true;
  }
}

IngressFilters ingress_filters(nl_sock* sock, int ifindex) {
  tcmsg header{};
  header.tcm_ifindex = ifindex;
  header.tcm_parent = kIngressHandle;
  Listing listing{ifindex, {}};
  int result = nl_send_simple(sock, RTM_GETTFILTER, NLM_F_DUMP, &header, sizeof(header));
  if (result >= 0) result = receive(sock, listing);
  if (result < 0) nl_fatal("Cannot allocate rtnl_cls_cache", result);
  return listing.filters;
}

}  // namespace quenby
