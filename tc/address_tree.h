#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>

#include "tc/handles.h"
#include "tc/u32_filter.h"

namespace quenby {

/// Offset in the IPv4 header of the address that a direction is classified by: the destination of
/// a download, the source of an upload.
int address_offset(HandleScheme scheme);

/// The first table of a direction's tree, of 16 buckets by the low four bits of the third octet.
U32Table base_table(HandleScheme scheme);

/// The filter in the kernel's root table that leads every packet into the base table.
U32Filter base_link(HandleScheme scheme);

/// What one more address needs, in this order: its bucket's table of 256 buckets by the last octet
/// with the link to it, unless an earlier address made them, and its own filter.
struct AddressFilters {
  std::optional<U32Table> table;
  std::optional<U32Filter> link;
  U32Filter address;
};

/// Which tables and nodes of one direction's tree are taken. Knows nothing of the kernel but what
/// it is told.
class AddressTree {
 public:
  explicit AddressTree(HandleScheme scheme) : scheme_(scheme) {}

  /// Notes a filter or table that the kernel has already, by its handle.
  void note(std::uint32_t handle);

  /// Whether the kernel has the base table, as far as has been noted.
  bool has_base() const { return has_base_; }

  /// The filters for `address` (network order) and class number `number`, which are taken from now
  /// on.
  AddressFilters add(std::uint32_t address, unsigned number);

 private:
  // Whether node 0 of the filter's bucket was free; it is not any more.
  bool take_node(const U32Filter& filter);

  HandleScheme scheme_;
  bool has_base_ = false;
  // First-level buckets that have their second-level table.
  std::map<int, bool> used_;
  // Handles with node 0: two filters that ask for one of them are one filter to older kernels.
  std::set<std::uint32_t> taken_;
};

}  // namespace quenby
