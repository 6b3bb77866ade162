#include "tc/htb_mark_intf.h"

#include <netlink/errno.h>
#include <netlink/route/cls/fw.h>

#include <algorithm>

#include "cli/error.h"
#include "tc/mark_filter.h"

namespace quenby {

void HtbMarkIntf::create_leaves(const GlobalSettings& g, const TariffSet& set) {
  create_fw_leaves(g, set);
}

void HtbMarkIntf::update_leaves(const GlobalSettings& g, const TariffSet& removed,
                                const TariffSet& added, bool remove) {
  update_fw_leaves(g, removed, added, remove);
}

void HtbMarkIntf::create_def_tar_leaf(const BandwidthSettings& def) {
  def_tar_class_op(def, htb_action::create);
  def_tar_qdisc_op(def, htb_action::create);
}

void HtbMarkIntf::build_tree(GlobalSet& set, const GlobalSet& given, bool tariffs,
                             std::int64_t link_speed) {
  const GlobalDirSettings& line = given.global.direction(ingress());
  const bool with_default = given.has_global && line.speed != kNeverSet && line.speed != 0;
  root_qdisc_add(with_default);
  create_root_leaf(set.global.direction(ingress()));
  if (with_default) create_def_leaf(line);

  const DefaultDirSettings& default_tariff = set.defaults.direction(ingress());
  if (set.has_default && default_tariff.speed != kNeverSet) create_def_tar_leaf(default_tariff);

  const bool redirect = with_default && tariffs && line.speed < link_speed;
  update_filter(set.global, line.speed, redirect, set.has_default || tariffs);
}

void HtbMarkIntf::add_fw_filter(unsigned prio) {
  const ClsPtr cls = new_cls("fw", prio);
  chk_nl_error("add filter mask", rtnl_fw_set_mask(cls.get(), kMarkMask), false);
  int result = rtnl_cls_add(sock(), cls.get(), NLM_F_CREATE);
  // Mainline kernels want a handle beside the mask; kernels without the classifier know no such
  // kind. An fw filter without options is no way out: it looks at the foreign bits of a mark too.
  if (result == -NLE_INVAL || result == -NLE_OBJ_NOTFOUND) result = send_mark_program(prio);
  chk_nl_error("add filter cls", result, false);
}

int HtbMarkIntf::send_mark_program(unsigned prio) {
  MsgPtr msg = mark_program_request(ifindex(), static_cast<std::uint16_t>(prio));
  if (msg == nullptr) _error("Msg allocation failed");
  return nl_send_sync(sock(), msg.release());
}

void HtbMarkIntf::create_fw_leaf(const TariffDirSettings& t,
                                 const std::vector<std::uint32_t>& addresses) {
  if (addresses.empty()) return;
  class_op(t, htb_action::create);
  create_qdisc(t);
}

void HtbMarkIntf::_create_fw_leaves(const GlobalSettings& g, const TariffSet& set) {
  int largest_burst = 0;
  for (const TariffSettings& tariff : set.tariffs()) {
    const TariffDirSettings& direction = tariff.direction(ingress());
    if (tariff.addresses.empty() || direction.speed == kNeverSet) continue;
    create_fw_leaf(direction, tariff.addresses);
    largest_burst = std::max(largest_burst, direction.burstSize());
  }
  if (largest_burst != 0) update_root_leaf_burst(g.direction(ingress()), largest_burst);
}

void HtbMarkIntf::create_fw_leaves(const GlobalSettings& g, const TariffSet& set) {
  if (has_tree(g)) _create_fw_leaves(g, set);
}

void HtbMarkIntf::delete_fw_leaf(const TariffDirSettings& t, bool remove,
                                 const std::vector<std::uint32_t>& addresses) {
  if (addresses.empty() || !remove) return;
  delete_qdisc(t);
  class_op(t, htb_action::remove);
}

void HtbMarkIntf::update_fw_leaves(const GlobalSettings& g, const TariffSet& removed,
                                   const TariffSet& added, bool remove) {
  if (!has_link()) return;
  for (const TariffSettings& tariff : removed.tariffs())
    delete_fw_leaf(tariff.direction(ingress()), remove, tariff.addresses);
  create_fw_leaves(g, added);
}

bool HtbMarkIntf::wants_tree(const GlobalSettings& g) const {
  const std::int64_t speed = g.direction(ingress()).speed;
  return link_exists(g.wan) && speed != kNeverSet && speed != 0;
}

}  // namespace quenby
