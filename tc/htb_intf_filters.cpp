#include <linux/if_ether.h>
#include <netlink/errno.h>

#include "cli/error.h"
#include "tc/htb_intf.h"
#include "tc/nl_error.h"

// The classifiers of a device.
namespace quenby {

ClsPtr HtbIntf::new_cls(const char* kind, unsigned prio) const {
  ClsPtr cls(rtnl_cls_alloc());
  if (cls == nullptr) _error("Cannot allocate rtnl_cls");
  attach(TC_CAST(cls.get()), kind);
  rtnl_tc_set_parent(TC_CAST(cls.get()), kHtbHandle);
  rtnl_cls_set_protocol(cls.get(), ETH_P_IP);
  rtnl_cls_set_prio(cls.get(), static_cast<std::uint16_t>(prio));
  return cls;
}

void HtbIntf::add_ht(const U32Table& table, unsigned prio, bool tolerate) {
  const ClsPtr cls = new_cls("u32", prio);
  set_u32_table(table, cls.get());
  const int result = rtnl_cls_add(sock(), cls.get(), NLM_F_CREATE);
  chk_nl_error("add ht cls", result, tolerate && result == -NLE_INVAL);
}

void HtbIntf::add_ht_filter(const U32Filter& filter, unsigned prio) {
  int result = send_u32_filter(filter, prio);
  const bool names_table = !filter.in_root_table() && filter.bucket == 0 && filter.node == 0;
  if (result == -NLE_INVAL && names_table && filter.own_node) {
    U32Filter numbered = filter;
    numbered.own_node = false;
    result = send_u32_filter(numbered, prio);
  }
  chk_nl_error("add filter cls", result, false);
}

int HtbIntf::send_u32_filter(const U32Filter& filter, unsigned prio) {
  const ClsPtr cls = new_cls("u32", prio);
  set_u32_filter(filter, cls.get());
  return rtnl_cls_add(sock(), cls.get(), NLM_F_CREATE);
}

void HtbIntf::del_filter(const std::string& dev, std::uint32_t parent_major, unsigned prio,
                         const char* kind) {
  const LinkPtr link = get_link(dev);
  if (link == nullptr) return;
  const ClsPtr cls = new_cls(kind, prio);
  rtnl_tc_set_link(TC_CAST(cls.get()), link.get());
  rtnl_tc_set_parent(TC_CAST(cls.get()), parent_major << 16);
  const int result = rtnl_cls_delete(sock(), cls.get(), 0);
  chk_nl_error("del filter cls", result, result == -NLE_OBJ_NOTFOUND || result == -NLE_INVAL);
}

void HtbIntf::del_ht_filter(std::uint32_t handle, unsigned prio) {
  const ClsPtr cls = new_cls("u32", prio);
  set_u32_handle(handle, cls.get());
  const int result = rtnl_cls_delete(sock(), cls.get(), 0);
  chk_nl_error("del filter cls", result, result == -NLE_OBJ_NOTFOUND || result == -NLE_INVAL);
}

void HtbIntf::del_redirection(int ifindex, std::uint32_t handle) {
  const ClsPtr cls = new_cls("u32", 1);
  set_u32_handle(handle, cls.get());
  rtnl_tc_set_ifindex(TC_CAST(cls.get()), ifindex);
  rtnl_tc_set_parent(TC_CAST(cls.get()), kIngressHandle);
  const int result = rtnl_cls_delete(sock(), cls.get(), 0);
  chk_nl_error("del filter cls", result, result == -NLE_OBJ_NOTFOUND || result == -NLE_INVAL);
}

CachePtr HtbIntf::alloc_cls_cache() const {
  nl_cache* all = nullptr;
  const int result = rtnl_cls_alloc_cache(sock(), ifindex(), kHtbHandle, &all);
  if (result < 0 || all == nullptr) nl_fatal("Cannot allocate rtnl_cls_cache", result);
  return {all, nl_cache_free};
}

}  // namespace quenby
