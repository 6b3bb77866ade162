#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

namespace quenby {

/// In network order.
using Ip6Address = std::array<std::uint8_t, 16>;

inline constexpr unsigned kIp6AddressBits = 128;

/// A block of IPv6 addresses that belongs to one subscriber. The bits after its length are 0.
struct Ip6Prefix {
  Ip6Address address{};
  /// In bits, 1 to 128.
  std::uint8_t length = kIp6AddressBits;

  bool operator==(const Ip6Prefix&) const = default;
  bool operator<(const Ip6Prefix& other) const {
    return std::tie(address, length) < std::tie(other.address, other.length);
  }
};

/// The first `length` bits of an address, the others 0. `length` is 128 at most.
Ip6Address masked(const Ip6Address& address, unsigned length);

/// Reads "ADDRESS" or "ADDRESS/LENGTH". Nothing when it is none, or when no packet that is
/// forwarded can come from there: IPv4-mapped, multicast, unspecified and link-local addresses.
std::optional<Ip6Prefix> parse_ip6_prefix(const std::string& text);

/// As inet_ntop writes it, with "/LENGTH" unless it is one address.
std::string to_text(const Ip6Prefix& prefix);

}  // namespace quenby
