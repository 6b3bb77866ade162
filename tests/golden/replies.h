#pragma once

#include <linux/gen_stats.h>
#include <linux/if_ether.h>
#include <linux/pkt_cls.h>
#include <linux/tc_act/tc_mirred.h>

#include <cstdint>
#include <string>

#include "model/ip6_prefix.h"
#include "tc/nl_types.h"

/// What the recording kernel answers a dump with: one message an object.
namespace golden {

/// A classifier under the HTB qdisc of a device, as the kernel lists it. `classid` 0: it ends in no
/// class, as a hash table or a link.
struct ListedFilter {
  int ifindex = 0;
  std::uint32_t handle = 0;
  std::uint32_t classid = 0;
  std::string kind = "u32";
  std::uint32_t parent = 0x80000000;
};

/// A u32 filter with two actions in the ingress qdisc of a device, as the kernel lists it. What
/// stands here is the one that redirects every packet.
struct ListedRedirection {
  int ifindex = 0;
  int target = 0;
  std::uint32_t handle = 0x80000800;
  unsigned prio = 1;
  std::uint16_t protocol = ETH_P_IP;
  unsigned char keys = 1;
  std::uint32_t mask = 0;
  std::string action = "mirred";
  int kind_of_mirred = TCA_EGRESS_REDIR;
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

/// A connection as the kernel lists it. Addresses in network order; zone 0 is not listed.
struct ListedConnection {
  std::uint32_t source = 0;
  std::uint32_t reply_source = 0;
  std::uint32_t mark = 0;
  std::uint16_t zone = 0;
};

/// The same of IPv6.
struct ListedIp6Connection {
  quenby::Ip6Address source{};
  quenby::Ip6Address reply_source{};
  std::uint32_t mark = 0;
};

quenby::MsgPtr link_message(const std::string& name, int ifindex);
/// The root qdisc of a device; handle 0 is one of the kernel's own.
quenby::MsgPtr root_message(int ifindex, std::uint32_t handle);
quenby::MsgPtr filter_message(const ListedFilter& filter);
quenby::MsgPtr redirection_message(const ListedRedirection& redirection);
quenby::MsgPtr class_message(const ListedClass& listed_class);
quenby::MsgPtr leaf_message(const ListedClass& listed_leaf);
quenby::MsgPtr connection_message(const ListedConnection& connection);
quenby::MsgPtr connection_message(const ListedIp6Connection& connection);
/// The end of every dump.
quenby::MsgPtr done_message();

}  // namespace golden
