#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <unordered_map>
#include <vector>

#include "shaper/address_set.h"

namespace quenby {

/// Which packet mark each address has, as the address set and the marking rules give it: that of
/// its tariff's class, and the default tariff's for every other address.
class MarkTable {
 public:
  /// As in the sets, the last entry of an address or prefix counts.
  explicit MarkTable(const std::vector<AddressSetEntry>& entries,
                     const std::vector<PrefixSetEntry>& prefixes = {});

  /// The mark of a connection that begins now, in host order and in our bits alone. `source` is
  /// where its first packet came from, `reply_source` where the answers come from (both network
  /// order): the marking rules see the first packet that leaves through the WAN device, which is an
  /// answer when the connection began outside.
  std::uint32_t connection_mark(std::uint32_t source, std::uint32_t reply_source) const;
  /// The same for IPv6, where an address has the mark of its longest prefix.
  std::uint32_t connection_mark(const Ip6Address& source, const Ip6Address& reply_source) const;

 private:
  struct Hash {
    std::size_t operator()(const Ip6Address& address) const;
  };

  std::unordered_map<std::uint32_t, std::uint32_t> marks_;
  /// By length, the longest first.
  std::map<unsigned, std::unordered_map<Ip6Address, std::uint32_t, Hash>, std::greater<>> prefixes_;
};

}  // namespace quenby
