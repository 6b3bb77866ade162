#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tc/ip6_redirection.h"
#include "tc/nl_types.h"

/// The redirection by which the WAN device's incoming traffic is shaped on another device: a filter
/// in its ingress qdisc.
namespace quenby {

/// The priority at which we put ours.
inline constexpr unsigned kRedirectionPrio = 1;

/// The shell command that redirects the incoming traffic of `wan` to the IFB device, after bringing
/// back each packet's mark from its connection when `restore_mark` is set.
std::string redirect_command(const std::string& wan, bool restore_mark);

/// A u32 filter of that priority that redirects every IPv4 packet.
struct Redirection {
  std::uint32_t handle = 0;
  /// Interface index of the device that it feeds; 0 when that was deleted, and then the filter
  /// drops every packet.
  int target = 0;
  /// Whether each packet gets its connection's mark back first.
  bool restores_mark = false;

  bool operator==(const Redirection&) const = default;
};

/// The filters of one ingress qdisc.
struct IngressFilters {
  std::vector<Redirection> redirections;
  /// Whether there is any filter of another shape.
  bool others = false;
  /// Those of IPv6, in the order in which packets meet them.
  std::vector<StandingIp6Redirection> ip6{};

  /// The handles of those that feed `ifindex` or a device that is gone.
  std::vector<std::uint32_t> handles_for(int ifindex) const;
  /// Those of IPv6 that feed one of the two, and those that only put fragments together.
  std::vector<StandingIp6Redirection> ip6_for(int ifindex) const;
};

/// Takes one message of a filter dump into account. `ifindex` is the device that was asked for;
/// what belongs to another one, or to another qdisc, is passed over.
void note_filter(const nlmsghdr* message, int ifindex, IngressFilters& filters);

/// Asks the kernel for the filters of a device's ingress qdisc; none when it has no such qdisc.
/// Failure ends the process.
IngressFilters ingress_filters(nl_sock* sock, int ifindex);

}  // namespace quenby
