#include "tc/u32_filter.h"

#include <linux/pkt_cls.h>
#include <netlink/route/cls/u32.h>

#include "tc/nl_error.h"

namespace quenby {
namespace {

void set_link(const U32Filter& filter, rtnl_cls* cls) {
  if (filter.hash_mask != 0 || filter.hash_offset != 0) {
    check_nl_result("set hashmask cls",
                    rtnl_u32_set_hashmask(cls, filter.hash_mask, filter.hash_offset));
  }
  check_nl_result("set link cls", rtnl_u32_set_link(cls, u32_handle(filter.link_table)));
}

void set_class(const U32Filter& filter, rtnl_cls* cls) {
  if (filter.classid != 0) check_nl_result("set id cls", rtnl_u32_set_classid(cls, filter.classid));
  check_nl_result("set terminal cls", rtnl_u32_set_cls_terminal(cls));
}

}  // namespace

void set_u32_handle(std::uint32_t handle, rtnl_cls* cls) {
  rtnl_u32_set_handle(cls, static_cast<int>(TC_U32_USERHTID(handle)),
                      static_cast<int>(TC_U32_HASH(handle)), static_cast<int>(TC_U32_NODE(handle)));
}

void set_u32_filter(const U32Filter& filter, rtnl_cls* cls) {
  if (!filter.in_root_table()) {
    check_nl_result("set ht cls", rtnl_u32_set_hashtable(cls, filter.handle()));
    if (filter.own_node) set_u32_handle(filter.handle(), cls);
  }
  check_nl_result("set key cls",
                  rtnl_u32_add_key_uint32(cls, filter.value, filter.mask, filter.offset, 0));
  if (filter.link_table != 0) {
    set_link(filter, cls);
  } else {
    set_class(filter, cls);
  }
}

void set_u32_table(const U32Table& table, rtnl_cls* cls) {
  rtnl_u32_set_handle(cls, static_cast<int>(table.id), 0, 0);
  check_nl_result("set cls divisor", rtnl_u32_set_divisor(cls, table.buckets));
}

}  // namespace quenby
