#include "tc/htb_eth_intf.h"

#include "tc/assert.h"
#include "tc/filters.h"
#include "tc/firewall_rules.h"
#include "tc/qdiscs.h"
#include "tc/tree_walk.h"

namespace quenby {

HtbEthIntf::HtbEthIntf(const std::string& name, SocketPtr& sock, CachePtr& link_cache)
    : HtbMarkIntf(name, Direction::upload, sock, link_cache) {}

void HtbEthIntf::setup(const DeviceTree& tree) {
  if (!has_link()) return;
  root_qdisc_del();
  qdisc_op(ingress_qdisc(), htb_action::remove);
  install_line(device(), tree);
  if (!tree.line.empty()) change_path(tree.path);
  if (tree.ingress) add_qdisc(device(), *tree.ingress);
}

void HtbEthIntf::teardown(const GlobalSet& set) {
  ingress_op(set.global, htb_action::remove);
  root_qdisc_del();
}

void HtbEthIntf::change_path(const MarkPath& path) {
  del_filter(name(), kHtbMajor, kClassifierPrio, nullptr);
  del_filter(name(), kHtbMajor, kFormerPrio, "fw");
  if (path.classifier) add_fw_filter(kClassifierPrio);
  remake_ip6_classifiers(path);
}

std::string& HtbEthIntf::fill_fw_rules(const GlobalSet& set, std::string& list) const {
  if (has_link())
    append_commands(list, upload_rules(as_given(set, side().way), chandle(kDefaultTariffClass)));
  return list;
}

bool HtbEthIntf::stands(const DeviceTree& tree) const {
  return has_link() && (!tree.ingress || qdisc_stands(device(), *tree.ingress)) &&
         tree_stands(device(), tree);
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
  qdisc_op(plain_root(g.upload.speed), action);
}

void HtbEthIntf::ingress_op(const GlobalSettings& /*g*/, htb_action action) {
  qdisc_op(ingress_qdisc(), action);
}

}  // namespace quenby
