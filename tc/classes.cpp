#include "tc/classes.h"

#include <linux/netlink.h>
#include <netlink/route/class.h>
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

// What a message says of a class, in the order in which it is set.
struct Parameter {
  const char* name;
  int (*set)(rtnl_class*, std::uint32_t);
  std::uint32_t HtbClass::*value;
};
constexpr Parameter kParameters[] = {
    {"ceil", rtnl_htb_set_ceil, &HtbClass::ceil},
    {"cburst", rtnl_htb_set_cbuffer, &HtbClass::cburst},
    {"rate", rtnl_htb_set_rate, &HtbClass::rate},
    {"burst", rtnl_htb_set_rbuffer, &HtbClass::burst},
    {"quantum", rtnl_htb_set_quantum, &HtbClass::quantum},
};

}  // namespace

void add_class(const Device& device, const HtbClass& values, int flags) {
  const ClassPtr object = new_class(device, values);
  for (const Parameter& p : kParameters) {
    device.chk_nl_error("set " + std::string(p.name) + " " + number_of(values) + " cls",
                        p.set(object.get(), values.*p.value));
  }
  device.chk_nl_error("add " + number_of(values) + " cls",
                      rtnl_class_add(device.sock, object.get(), flags));
}

void delete_class(const Device& device, const HtbClass& values) {
  if (!device.exists()) return;
  const ClassPtr object = new_class(device, values);
  const int result = rtnl_class_delete(device.sock, object.get());
  device.chk_deleted("delete " + number_of(values) + " cls", result);
}

MsgPtr class_request(const Device& device, const HtbClass& values) {
  const ClassPtr object = new_class(device, values);
  for (const Parameter& p : kParameters) {
    device.chk_nl_error("set " + std::string(p.name) + " " + number_of(values) + " cls",
                        p.set(object.get(), values.*p.value));
  }
  nl_msg* request = nullptr;
  device.chk_nl_error("add " + number_of(values) + " cls",
                      rtnl_class_build_add_request(object.get(), NLM_F_CREATE, &request));
  return MsgPtr(request);
}

bool class_stands(const Device& device, const HtbClass& values) {
  return device.exists() &&
         is_acknowledged(device, class_query(device.ifindex, values.handle, values.parent));
}

}  // namespace quenby
