#include <netlink/errno.h>
#include <netlink/route/qdisc/htb.h>

#include "cli/error.h"
#include "tc/assert.h"
#include "tc/htb_class.h"
#include "tc/htb_intf.h"
#include "tc/psched.h"

// The HTB classes of a device.
namespace quenby {

ClassPtr HtbIntf::new_class(const char* kind) const {
  ClassPtr object(rtnl_class_alloc());
  if (object == nullptr) _error("Cannot allocate rtnl_class");
  attach(TC_CAST(object.get()), kind);
  return object;
}

void HtbIntf::class_op(unsigned cid, unsigned parent, std::int64_t ceil, std::int64_t rate,
                       std::int64_t& burst, htb_action action) {
  const HtbClass values = htb_class(cid, parent, ceil, rate, burst, psched_hz());
  const std::string what = std::to_string(cid) + " cls";
  const ClassPtr object = new_class("htb");
  rtnl_tc_set_parent(TC_CAST(object.get()), values.parent);
  rtnl_tc_set_handle(TC_CAST(object.get()), values.handle);
  if (action == htb_action::remove) {
    if (!has_link()) return;
    const int result = rtnl_class_delete(sock(), object.get());
    chk_nl_error("delete " + what, result, result == -NLE_OBJ_NOTFOUND);
    return;
  }
  if (action != htb_action::create && action != htb_action::update)
    _error(name() + ": cls " + std::to_string(cid) + " wrong action " + action_name(action));

  chk_nl_error("set ceil " + what, rtnl_htb_set_ceil(object.get(), values.ceil), false);
  chk_nl_error("set cburst " + what, rtnl_htb_set_cbuffer(object.get(), values.cburst), false);
  chk_nl_error("set rate " + what, rtnl_htb_set_rate(object.get(), values.rate), false);
  burst = values.burst;
  chk_nl_error("set burst " + what, rtnl_htb_set_rbuffer(object.get(), values.burst), false);
  chk_nl_error("set quantum " + what, rtnl_htb_set_quantum(object.get(), values.quantum), false);
  const int flags = action == htb_action::create ? NLM_F_CREATE : NLM_F_REPLACE;
  chk_nl_error("add " + what, rtnl_class_add(sock(), object.get(), flags), false);
}

std::int64_t HtbIntf::create_root_leaf(BandwidthSettings& root) {
  TC_ASSERT(root.download() == ingress());
  if (root.speed == kNeverSet) return -1;
  std::int64_t burst = 0;
  class_op(root_cid(), 0, root.speed, root.rateBps(), burst, htb_action::create);
  root.burst = static_cast<std::int32_t>(burst);
  return burst;
}

void HtbIntf::update_root_leaf(BandwidthSettings& root) {
  TC_ASSERT(root.download() == ingress());
  if (!has_link() || root.speed == kNeverSet) return;
  std::int64_t burst = 0;
  class_op(root_cid(), 0, root.speed, root.rateBps(), burst, htb_action::update);
  root.burst = static_cast<std::int32_t>(burst);
}

void HtbIntf::update_root_leaf_burst(const BandwidthSettings& root, std::int64_t burst) {
  if (root.speed == kNeverSet) return;
  if (class_burst(static_cast<double>(root.speed), psched_hz()) >= burst) return;
  class_op(root_cid(), 0, root.speed, root.rateBps(), burst, htb_action::update);
}

void HtbIntf::tariff_class_op(const TariffDirSettings& t, htb_action action) {
  std::int64_t burst = t.burstSize();
  class_op(cid(static_cast<unsigned>(t.id)), root_cid(), t.speed, t.rateBps(), burst, action);
}

void HtbIntf::default_class_op(const BandwidthSettings& def, unsigned number, std::int64_t rate,
                               htb_action action) {
  const bool makes = action == htb_action::create || action == htb_action::update;
  if (action != htb_action::remove && (!makes || def.speed == kNeverSet)) return;
  std::int64_t burst = 0;
  class_op(number, root_cid(), def.speed, rate, burst, action);
}

}  // namespace quenby
