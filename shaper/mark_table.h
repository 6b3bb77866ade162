#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "shaper/address_set.h"

namespace quenby {

/// Which packet mark each address has, as the address set and the marking rules give it: that of
/// its tariff's class, and the default tariff's for every other address.
class MarkTable {
 public:
  /// As in the set, the last entry of an address counts.
  explicit MarkTable(const std::vector<AddressSetEntry>& entries);

  /// The mark of a connection that begins now, in host order and in our bits alone. `source` is
  /// where its first packet came from, `reply_source` where the answers come from (both network
  /// order): the marking rules see the first packet that leaves through the WAN device, which is an
  /// answer when the connection began outside.
  std::uint32_t connection_mark(std::uint32_t source, std::uint32_t reply_source) const;

 private:
  std::unordered_map<std::uint32_t, std::uint32_t> marks_;
};

}  // namespace quenby
