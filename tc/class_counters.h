#pragma once

#include <linux/netlink.h>

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "tc/device.h"

/// What classes have carried and what waits in them, with one dump for all of a device or a request
/// for each. Every refusal of the kernel is an error as in `Device`.
namespace quenby {

/// The counters of a class since it was made.
struct ClassCounters {
  std::uint32_t handle = 0;
  /// What has left the class; bytes as the device counts them, link layer header included.
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;
  /// Packets that the class refused. What its leaf takes and drops later is not among them.
  std::uint64_t drops = 0;
  /// How often a packet had to wait for the ceiling.
  std::uint64_t overlimits = 0;
  /// What waits in the leaf now.
  std::uint64_t backlog_bytes = 0;
  std::uint64_t backlog_packets = 0;

  bool operator==(const ClassCounters&) const = default;
};

/// The classes of the device's HTB root of ours, in the kernel's order; none where there is no such
/// root. The flows that leaves list as classes are not even asked for.
std::vector<ClassCounters> class_counters(const Device& device);

/// One class of the device; nothing where the kernel has none of that handle. For a few of many: a
/// dump takes the kernel the longer the more classes there are.
std::optional<ClassCounters> class_counters(const Device& device, std::uint32_t handle);

/// All packets that a leaf has dropped since it was made, refused ones included.
struct LeafDrops {
  int ifindex = 0;
  /// The handle of its class.
  std::uint32_t parent = 0;
  std::uint64_t drops = 0;

  bool operator==(const LeafDrops&) const = default;
};

/// The leaves under the HTB roots of ours on all devices, which is what the kernel can list.
std::vector<LeafDrops> leaf_drops(nl_sock* sock);

/// The counters of whole devices, by interface index, and of all leaves.
struct CounterLists {
  std::map<int, std::vector<ClassCounters>> classes;
  std::vector<LeafDrops> leaves;

  /// Takes the counters of a listed class or qdisc, where it is one of those above.
  void note(const nlmsghdr* message);
};

}  // namespace quenby
