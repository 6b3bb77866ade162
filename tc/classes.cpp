#include "tc/classes.h"

#include <netlink/route/qdisc/htb.h>

#include "cli/error.h"
#include "tc/nl_types.h"
#include "tc/queries.h"

namespace quenby {
namespace {

// How messages name a class.
std::string number_of(const HtbClass& values) { return std::to_string(TC_H_MIN(values.handle)); }

ClassPtr new_class(const Device& device, const HtbClass& values) {
  ClassPtr object(rtnl_class_alloc());
  if (object == nullptr) _error("Cannot allocate rtnl_class");
  device.attach(TC_CAST(object.get()), "htb");
  rtnl_tc_set_parent(TC_CAST(object.get()), values.parent);
  rtnl_tc_set_handle(TC_CAST(object.get()), values.handle);
  return object;
}

void send_class(const Device& device, const HtbClass& values, int flags) {
  const std::string what = number_of(values) + " cls";
  const ClassPtr object = new_class(device, values);
  rtnl_class* const cls = object.get();
  device.chk_nl_error("set ceil " + what, rtnl_htb_set_ceil(cls, values.ceil));
  device.chk_nl_error("set cburst " + what, rtnl_htb_set_cbuffer(cls, values.cburst));
  device.chk_nl_error("set rate " + what, rtnl_htb_set_rate(cls, values.rate));
  device.chk_nl_error("set burst " + what, rtnl_htb_set_rbuffer(cls, values.burst));
  device.chk_nl_error("set quantum " + what, rtnl_htb_set_quantum(cls, values.quantum));
  device.chk_nl_error("add " + what, rtnl_class_add(device.sock, cls, flags));
}

}  // namespace

void add_class(const Device& device, const HtbClass& values) {
  send_class(device, values, NLM_F_CREATE);
}

void replace_class(const Device& device, const HtbClass& values) {
  send_class(device, values, NLM_F_REPLACE);
}

void delete_class(const Device& device, const HtbClass& values) {
  if (!device.exists()) return;
  const ClassPtr object = new_class(device, values);
  const int result = rtnl_class_delete(device.sock, object.get());
  device.chk_deleted("delete " + number_of(values) + " cls", result);
}

bool class_stands(const Device& device, const HtbClass& values) {
  return device.exists() &&
         is_acknowledged(device, class_query(device.ifindex, values.handle, values.parent));
}

}  // namespace quenby
