#pragma once

#include <linux/netlink.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tc/class_counters.h"
#include "tc/redirection.h"
#include "tc/tc_object.h"
#include "tc/u32_filter.h"

struct nl_sock;

/// What the kernel holds of a device, read back as values. Failure ends the process.
namespace quenby {

/// A classifier under the HTB root.
struct StandingFilter {
  std::string kind;
  std::uint32_t handle = 0;
  unsigned prio = 0;
  /// An ETH_P_ number, host order.
  unsigned protocol = 0;
  /// Whether it is ours, which sends packets to the class that their mark names.
  bool by_mark = false;
  /// The match of a u32 filter of one key, and the buckets of a u32 hash table.
  std::optional<U32Filter> match;
  std::optional<U32Table> table;
};

struct StandingDevice {
  /// 0 while it does not exist.
  int ifindex = 0;
  bool up = false;
  std::vector<TcObject> qdiscs;
  /// HTB classes alone.
  std::vector<TcObject> classes;
  /// The classifiers under the HTB root; none without one.
  std::vector<StandingFilter> filters;
  IngressFilters ingress;

  /// The qdisc at this parent, but for the kernel's own; null when there is none.
  const TcObject* qdisc_at(std::uint32_t parent) const;
};

/// The qdiscs of all devices by interface index, which the kernel lists in one go. With `counters`
/// the leaves' go there.
using QdiscsByDevice = std::map<int, std::vector<TcObject>>;
QdiscsByDevice list_qdiscs(nl_sock* sock, CounterLists* counters = nullptr);

/// The classifier of a message of a device's list; nothing for what a kind lists once for itself.
std::optional<StandingFilter> read_filter(const nlmsghdr* message);

/// The rest of a device that exists. With `counters` those of its classes go there.
StandingDevice read_device(nl_sock* sock, int ifindex, bool up, QdiscsByDevice& qdiscs,
                           CounterLists* counters = nullptr);

}  // namespace quenby
