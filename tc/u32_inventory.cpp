#include "tc/u32_inventory.h"

#include <netlink/route/cls/u32.h>

#include <string_view>

namespace quenby {

U32Inventory::U32Inventory(const CachePtr& cache) {
  for (nl_object* object = nl_cache_get_first(cache.get()); object != nullptr;
       object = nl_cache_get_next(object)) {
    auto* const cls = reinterpret_cast<rtnl_cls*>(object);
    const char* const kind = rtnl_tc_get_kind(TC_CAST(cls));
    if (kind == nullptr || std::string_view(kind) != "u32") continue;
    const std::uint32_t handle = rtnl_tc_get_handle(TC_CAST(cls));
    handles_.push_back(handle);
    std::uint32_t classid = 0;
    if (rtnl_u32_get_classid(cls, &classid) == 0) by_class_.emplace(classid, handle);
  }
}

std::vector<std::uint32_t> U32Inventory::of_class(std::uint32_t classid) const {
  std::vector<std::uint32_t> handles;
  const auto [first, last] = by_class_.equal_range(classid);
  for (auto entry = first; entry != last; ++entry) handles.push_back(entry->second);
  return handles;
}

}  // namespace quenby
