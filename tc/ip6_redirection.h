#pragma once

#include <linux/netlink.h>
#include <netlink/attr.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The filters by which the WAN device's incoming IPv6 is shaped on the IFB device, beside the
/// redirection of IPv4. Only the first fragment of a packet tells its connection, so fragments are
/// put together first; the packet is then taken in once more, as a redirection of what was put
/// together would take it to pieces again that the IFB device drops. A fragment header may stand
/// behind any number of others, so every packet with an extension header goes this way, a whole one
/// unchanged, and a mark says that it has.
namespace quenby {

/// The priority at which we put ours; one of another protocol cannot have the same.
inline constexpr unsigned kIp6RedirectionPrio = 2;

/// Bits of one 32-bit word of the header, host order; `offset` in bytes.
struct HeaderWord {
  std::uint32_t value = 0;
  std::uint32_t mask = 0;
  int offset = 0;

  bool operator==(const HeaderWord&) const = default;
};

/// One filter: which packets it is for, and what becomes of them.
struct Ip6Redirection {
  std::vector<HeaderWord> words;
  /// Whether it is for packets that have not come by yet: fragments are put together, and the
  /// packet is marked and taken in once more. All others go to the IFB device.
  bool gathers = false;
  /// Whether each packet gets its connection's mark back first.
  bool restores_mark = false;

  bool operator==(const Ip6Redirection&) const = default;
};

/// Our filters in their order: of several that match the first counts.
std::vector<Ip6Redirection> ip6_redirections(bool restore_mark);

/// The shell commands that make them on `wan`, joined so that the first failure ends the list.
std::string ip6_redirect_commands(const std::string& wan, bool restore_mark);

/// A filter of ours as it stands.
struct StandingIp6Redirection {
  Ip6Redirection filter;
  std::uint32_t handle = 0;
  /// Interface index of the device that it feeds; 0 when that was deleted.
  int target = 0;
};

/// Reads the options of a u32 filter of the device `ifindex`; nothing where it is not of our shape.
std::optional<StandingIp6Redirection> read_ip6_redirection(int ifindex, std::uint32_t handle,
                                                           nlattr* options);

}  // namespace quenby
