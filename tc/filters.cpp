#include "tc/filters.h"

#include <netlink/errno.h>
#include <netlink/route/cls/fw.h>

#include <netinet/in.h>
#include <utility>

#include "cli/error.h"
#include "tc/handles.h"
#include "tc/mark_filter.h"
#include "tc/nl_error.h"

namespace quenby {
namespace {

// `kind` may be null.
ClsPtr new_cls(const Device& device, const char* kind, std::uint32_t parent, unsigned prio,
               std::uint16_t protocol = ETH_P_IP) {
  ClsPtr cls(rtnl_cls_alloc());
  if (cls == nullptr) _error("Cannot allocate rtnl_cls");
  device.attach(TC_CAST(cls.get()), kind);
  rtnl_tc_set_parent(TC_CAST(cls.get()), parent);
  rtnl_cls_set_protocol(cls.get(), protocol);
  rtnl_cls_set_prio(cls.get(), static_cast<std::uint16_t>(prio));
  return cls;
}

int send_u32_filter(const Device& device, const U32Filter& filter, unsigned prio,
                    std::uint16_t protocol = ETH_P_IP) {
  const ClsPtr cls = new_cls(device, "u32", kHtbHandle, prio, protocol);
  set_u32_filter(filter, cls.get());
  return rtnl_cls_add(device.sock, cls.get(), NLM_F_CREATE);
}

void delete_cls(const Device& device, const ClsPtr& cls) {
  const int result = rtnl_cls_delete(device.sock, cls.get(), 0);
  // "Invalid" is the answer where the qdisc of the classifier is gone.
  if (result != -NLE_INVAL) device.chk_deleted("del filter cls", result);
}

int send_mark_program(const Device& device, unsigned prio, std::uint16_t protocol) {
  MsgPtr msg = mark_program_request(device.ifindex, static_cast<std::uint16_t>(prio), protocol);
  if (msg == nullptr) _error("Msg allocation failed");
  return nl_send_sync(device.sock, msg.release());
}

}  // namespace

void add_u32_table(const Device& device, const U32Table& table, unsigned prio, bool tolerate) {
  const ClsPtr cls = new_cls(device, "u32", kHtbHandle, prio);
  set_u32_table(table, cls.get());
  const int result = rtnl_cls_add(device.sock, cls.get(), NLM_F_CREATE);
  if (!tolerate || result != -NLE_INVAL) device.chk_nl_error("add ht cls", result);
}

void add_u32_filter(const Device& device, const U32Filter& filter, unsigned prio) {
  int result = send_u32_filter(device, filter, prio);
  const bool names_table = !filter.in_root_table() && filter.bucket == 0 && filter.node == 0;
  if (result == -NLE_INVAL && names_table && filter.own_node) {
    U32Filter numbered = filter;
    numbered.own_node = false;
    result = send_u32_filter(device, numbered, prio);
  }
  device.chk_nl_error("add filter cls", result);
}

void delete_u32_filter(const Device& device, std::uint32_t parent, std::uint32_t handle,
                       unsigned prio) {
  const ClsPtr cls = new_cls(device, "u32", parent, prio);
  set_u32_handle(handle, cls.get());
  delete_cls(device, cls);
}

void add_mark_filter(const Device& device, unsigned prio, std::uint16_t protocol) {
  const ClsPtr cls = new_cls(device, "fw", kHtbHandle, prio, protocol);
  device.chk_nl_error("add filter mask", rtnl_fw_set_mask(cls.get(), kMarkMask));
  int result = rtnl_cls_add(device.sock, cls.get(), NLM_F_CREATE);
  // Mainline kernels want a handle beside the mask; kernels without the classifier know no such
  // kind. An fw filter without options is no way out: it looks at the foreign bits of a mark too.
  if (result == -NLE_INVAL || result == -NLE_OBJ_NOTFOUND)
    result = send_mark_program(device, prio, protocol);
  device.chk_nl_error("add filter cls", result);
}

U32Filter discovery_filter() {
  U32Filter filter;
  filter.value = IPPROTO_ICMPV6 << 8 | 255;
  filter.mask = 0xffff;
  filter.offset = 4;
  // The class of HTB itself is its direct queue, which comes before all others.
  filter.classid = kHtbHandle;
  return filter;
}

void add_discovery_filter(const Device& device) {
  device.chk_nl_error("add filter cls",
                      send_u32_filter(device, discovery_filter(), kDiscoveryPrio, ETH_P_IPV6));
}

void delete_filters(const Device& device, std::uint32_t parent, unsigned prio, const char* kind,
                    std::uint16_t protocol) {
  if (device.exists()) delete_cls(device, new_cls(device, kind, parent, prio, protocol));
}

void delete_filter(const Device& device, const std::string& kind, std::uint32_t parent,
                   std::uint32_t handle, unsigned prio, unsigned protocol) {
  const ClsPtr cls =
      new_cls(device, kind.c_str(), parent, prio, static_cast<std::uint16_t>(protocol));
  if (handle != 0) rtnl_tc_set_handle(TC_CAST(cls.get()), handle);
  delete_cls(device, cls);
}

CachePtr list_filters(const Device& device) {
  nl_cache* all = nullptr;
  const int result = rtnl_cls_alloc_cache(device.sock, device.ifindex, kHtbHandle, &all);
  if (result < 0 || all == nullptr) nl_fatal("Cannot allocate rtnl_cls_cache", result);
  return {all, nl_cache_free};
}

}  // namespace quenby
