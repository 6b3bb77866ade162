#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "tc/nl_types.h"

namespace quenby {

/// The u32 filters and tables of a device's classifier cache, by handle and by class.
class U32Inventory {
 public:
  /// Of a device without any.
  U32Inventory() = default;
  explicit U32Inventory(const CachePtr& cache);

  /// Every filter and table.
  const std::vector<std::uint32_t>& handles() const { return handles_; }
  /// The filters that end in this class.
  std::vector<std::uint32_t> of_class(std::uint32_t classid) const;

 private:
  std::vector<std::uint32_t> handles_;
  std::multimap<std::uint32_t, std::uint32_t> by_class_;
};

}  // namespace quenby
