#pragma once

#include <cstdint>

#include "tc/nl_types.h"

namespace quenby {

/// A u32 handle; without bucket and node it names the table itself.
constexpr std::uint32_t u32_handle(unsigned table, unsigned bucket = 0, unsigned node = 0) {
  return table << 20 | bucket << 12 | node;
}

/// A u32 filter: an exact match of one 32-bit word of the IP header that either goes on in
/// another hash table or ends in a class.
struct U32Filter {
  /// Host order; `offset` in bytes from the start of the header.
  std::uint32_t value = 0;
  std::uint32_t mask = 0;
  int offset = 0;

  /// Where the filter stands; table 0 with bucket 0 is the kernel's root table, which numbers its
  /// filters itself.
  unsigned table = 0;
  unsigned bucket = 0;
  unsigned node = 0;
  /// False to let the kernel number the node, because another filter of the bucket has this one.
  bool own_node = true;

  /// Non-zero: go on in this table, in the bucket that the masked word at `hash_offset` names.
  unsigned link_table = 0;
  std::uint32_t hash_mask = 0;
  std::uint32_t hash_offset = 0;

  /// The class of a filter without a link.
  std::uint32_t classid = 0;

  bool in_root_table() const { return table == 0 && bucket == 0; }
  std::uint32_t handle() const { return u32_handle(table, bucket, node); }
};

/// A u32 hash table of `buckets` buckets.
struct U32Table {
  unsigned id = 0;
  unsigned buckets = 0;
};

/// Puts the filter into a classifier object of kind "u32".
void set_u32_filter(const U32Filter& filter, rtnl_cls* cls);

/// Names an existing filter.
void set_u32_handle(std::uint32_t handle, rtnl_cls* cls);

/// Puts the table into a classifier object of kind "u32".
void set_u32_table(const U32Table& table, rtnl_cls* cls);

}  // namespace quenby
