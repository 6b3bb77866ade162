#include "tc/htb_eth_intf.h"

#include "tc/assert.h"
#include "tc/firewall_rules.h"
#include "tc/fq_codel.h"

namespace quenby {

HtbEthIntf::HtbEthIntf(const std::string& name, SocketPtr& sock, CachePtr& link_cache)
    : HtbMarkIntf(name, false, sock, link_cache) {}

void HtbEthIntf::setup(GlobalSet& set, const GlobalSet& given, bool tariffs,
                       std::int64_t link_speed) {
  if (!has_link()) return;
  root_qdisc_del();
  ingress_op(set.global, htb_action::remove);
  const std::int64_t speed = set.global.upload.speed;
  if (speed == 0) {
    global_fq_codel_op(set.global, htb_action::create);
  } else if (speed != kNeverSet) {
    build_tree(set, given, tariffs, link_speed);
  }
  ingress_op(set.global, htb_action::create);
}

void HtbEthIntf::teardown(const GlobalSet& set) {
  ingress_op(set.global, htb_action::remove);
  root_qdisc_del();
}

void HtbEthIntf::update_filter(const GlobalSettings& g, std::int64_t /*speed*/, bool redirect,
                               bool restore_mark) {
  if (!has_link()) return;
  del_filter(name(), kHtbMajor, 1, nullptr);
  del_filter(name(), kHtbMajor, 2, "fw");
  if (g.upload.speed == kNeverSet || g.upload.speed == 0) return;
  if (redirect || restore_mark) add_fw_filter(1);
}

std::string& HtbEthIntf::fill_fw_rules(const GlobalSet& set, std::string& list) const {
  if (has_link()) append_commands(list, egress_rules(set, chandle(kDefaultTariffClass)));
  return list;
}

bool HtbEthIntf::stands(const GlobalSettings& g) const {
  if (!qdisc_stands("ingress", kIngressHandle, TC_H_INGRESS)) return false;
  if (wants_tree(g)) return htb_stands();
  return g.upload.speed != 0 || qdisc_stands("fq_codel", kPlainRootHandle, TC_H_ROOT);
}

void HtbEthIntf::def_qdisc_op(const BandwidthSettings& def, htb_action action) {
  TC_ASSERT(!def.download());
  default_leaf_op(def, kDefaultClass, action);
}

void HtbEthIntf::class_op(const TariffDirSettings& t, htb_action action) {
  TC_ASSERT(!t.download());
  tariff_class_op(t, action);
}

void HtbEthIntf::def_class_op(const BandwidthSettings& def, htb_action action) {
  TC_ASSERT(!def.download());
  default_class_op(def, kDefaultClass, 0, action);
}

void HtbEthIntf::def_tar_class_op(const BandwidthSettings& def, htb_action action) {
  TC_ASSERT(!def.download());
  default_class_op(def, kDefaultTariffClass, def.rateBps(), action);
}

void HtbEthIntf::def_tar_qdisc_op(const BandwidthSettings& def, htb_action action) {
  TC_ASSERT(!def.download());
  default_leaf_op(def, kDefaultTariffClass, action);
}

void HtbEthIntf::global_fq_codel_op(const GlobalSettings& g, htb_action action) {
  qdisc_op("fq_codel", kPlainRootHandle, TC_H_ROOT, g.upload, action, set_fq_codel);
}

void HtbEthIntf::ingress_op(const GlobalSettings& g, htb_action action) {
  qdisc_op("ingress", kIngressHandle, TC_H_INGRESS, g.download, action,
           [](const BandwidthSettings&, rtnl_qdisc*) {});
}

}  // namespace quenby
