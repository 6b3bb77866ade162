#include <iostream>

#include "cli/error.h"
#include "tc/class_statistics.h"
#include "tc/htb_imq_intf.h"
#include "tc/htb_mark_intf.h"
#include "tc/nl_error.h"

// Reading the class counters of a device.
namespace quenby {
namespace {

// Calls `visit` with every class of `cache` that has what `filter` has.
template <typename Visit>
void for_each_class(nl_cache* cache, rtnl_class* filter, Visit visit) {
  const auto call = [](nl_object* object, void* context) {
    (*static_cast<Visit*>(context))(reinterpret_cast<rtnl_class*>(object));
  };
  nl_cache_foreach_filter(cache, OBJ_CAST(filter), call, &visit);
}

}  // namespace

void HtbIntf::class_stat(const TariffConfig& cfg) const {
  if (!has_link()) return;
  const Device self = device();
  const ClassPtr filter(rtnl_class_alloc());
  if (filter == nullptr) _error("Cannot allocate rtnl_class");
  self.attach(TC_CAST(filter.get()), nullptr);
  nl_cache* all = nullptr;
  const int result = rtnl_class_alloc_cache(self.sock, self.ifindex, &all);
  if (result < 0 || all == nullptr) nl_fatal("Cannot allocate rtnl_class_cache", result);
  const CachePtr cache(all, nl_cache_free);
  stat_classes(cache.get(), filter.get(), cfg);
  std::cout << std::flush;
}

void HtbMarkIntf::stat_classes(nl_cache* cache, rtnl_class* filter, const TariffConfig& cfg) const {
  rtnl_tc_set_parent(TC_CAST(filter), class_handle(root_cid()));
  const std::string direction = ingress() ? "download " : "upload ";
  for_each_class(cache, filter, [&](rtnl_class* child) {
    const unsigned number = rtnl_tc_get_handle(TC_CAST(child)) & kClassMask;
    print_class(std::cout, direction + mark_class_name(number, cfg), child);
  });
}

void HtbImqIntf::stat_classes(nl_cache* cache, rtnl_class* filter, const TariffConfig& cfg) const {
  if (!ingress()) return;
  for_each_class(cache, filter, [&cfg](rtnl_class* found) {
    rtnl_tc* const tc = TC_CAST(found);
    const std::string name = imq_class_name(rtnl_tc_get_handle(tc), rtnl_tc_get_parent(tc), cfg);
    if (!name.empty()) print_class(std::cout, name, found);
  });
}

}  // namespace quenby
