#pragma once

#include <linux/gen_stats.h>
#include <linux/if_ether.h>
#include <linux/pkt_cls.h>
#include <linux/tc_act/tc_mirred.h>

#include <cstdint>
#include <string>
#include <vector>

#include "model/ip6_prefix.h"
#include "tc/ip6_redirection.h"
#include "tc/nl_types.h"

/// What the recording kernel answers a dump with: one message an object.
namespace golden {

/// Handles of the qdiscs that everything hangs on.
inline constexpr std::uint32_t kHtb = 0x80000000;
inline constexpr std::uint32_t kIngress = 0xffff0000;

/// A classifier under the HTB qdisc of a device, as the kernel lists it. `classid` 0: it ends in no
/// class, as a hash table or a link.
struct ListedFilter {
  int ifindex = 0;
  std::uint32_t handle = 0;
  std::uint32_t classid = 0;
  std::string kind = "u32";
  std::uint32_t parent = kHtb;
};

/// An action of a filter; `eaction` is what mirred does, mark and mask are what skbedit sets.
struct ListedAction {
  std::string kind;
  int eaction = 0;
  std::uint32_t mark = 0;
  std::uint32_t mask = 0;
};

/// A u32 filter in the ingress qdisc of a device, as the kernel lists it, with `target` as the
/// device of all its actions. What stands here is the one that redirects every packet of IPv4.
struct ListedRedirection {
  int ifindex = 0;
  int target = 0;
  std::uint32_t handle = 0x80000800;
  unsigned prio = 1;
  std::uint16_t protocol = ETH_P_IP;
  std::vector<quenby::HeaderWord> words = {{0, 0, 0}};
  /// Which mark a packet has to have; a mask of 0 is not listed.
  std::uint32_t mark = 0;
  std::uint32_t mask = 0;
  std::vector<ListedAction> actions = {{"connmark"}, {"mirred", TCA_EGRESS_REDIR}};
};

/// An HTB class with its counters, as the kernel lists it.
struct ListedClass {
  int ifindex = 0;
  std::uint32_t handle = 0;
  std::uint32_t parent = 0;
  gnet_stats_basic traffic{};
  gnet_stats_rate_est rate{};
  gnet_stats_queue queue{};
  /// The packets where 32 bits do not hold them; 0 is not listed.
  std::uint64_t packets = 0;
};

/// A class without traffic, unless a test adds some.
inline ListedClass listed_class(int ifindex, std::uint32_t handle, std::uint32_t parent) {
  return {ifindex, handle, parent};
}

/// A connection as the kernel lists it. Addresses in network order; zone 0 is not listed.
template <typename Address>
struct ListedConnectionOf {
  Address source{};
  Address reply_source{};
  std::uint32_t mark = 0;
  std::uint16_t zone = 0;
};

using ListedConnection = ListedConnectionOf<std::uint32_t>;
using ListedIp6Connection = ListedConnectionOf<quenby::Ip6Address>;

quenby::MsgPtr link_message(const std::string& name, int ifindex);
/// The root qdisc of a device; handle 0 is one of the kernel's own.
quenby::MsgPtr root_message(int ifindex, std::uint32_t handle);
quenby::MsgPtr filter_message(const ListedFilter& filter);
quenby::MsgPtr redirection_message(const ListedRedirection& redirection);
quenby::MsgPtr class_message(const ListedClass& listed);
quenby::MsgPtr leaf_message(const ListedClass& listed);
quenby::MsgPtr connection_message(const ListedConnection& connection);
quenby::MsgPtr connection_message(const ListedIp6Connection& connection);
/// The end of every dump.
quenby::MsgPtr done_message();

}  // namespace golden
