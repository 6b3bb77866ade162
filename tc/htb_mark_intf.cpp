#include "tc/htb_mark_intf.h"

#include "tc/filters.h"
#include "tc/tree_walk.h"

namespace quenby {

HtbMarkIntf::HtbMarkIntf(const std::string& name, Direction way, SocketPtr& sock,
                         CachePtr& link_cache)
    : HtbIntf(name, mark_side(way), sock, link_cache) {}

void HtbMarkIntf::create_leaves(const GlobalSettings& g, const TariffSet& set) {
  create_fw_leaves(g, set);
}

void HtbMarkIntf::update_filter(const GlobalSettings& g, std::int64_t /*speed*/, bool redirect,
                                bool restore_mark) {
  const bool marked = restore_mark || (redirect && !ingress());
  if (has_link() && link_exists(g.wan))
    change_path(mark_path(side(), as_given(g, side().way), marked));
}

bool HtbMarkIntf::has_tree(const ResolvedLine& line) const {
  return link_exists(line.wan) && HtbIntf::has_tree(line);
}

void HtbMarkIntf::create_def_tar_leaf(const BandwidthSettings& def) {
  def_tar_class_op(def, htb_action::create);
  def_tar_qdisc_op(def, htb_action::create);
}

void HtbMarkIntf::add_fw_filter(unsigned prio) { add_mark_filter(device(), prio); }

void HtbMarkIntf::remake_ip6_classifiers(const MarkPath& path) {
  if (!path.ipv6) return;
  for (const unsigned prio : {kDiscoveryPrio, kIp6ClassifierPrio})
    delete_filters(device(), kHtbHandle, prio, nullptr, ETH_P_IPV6);
  add_discovery_filter(device());
  if (path.classifier) add_mark_filter(device(), kIp6ClassifierPrio, ETH_P_IPV6);
}

void HtbMarkIntf::create_fw_leaf(const TariffDirSettings& t,
                                 const std::vector<std::uint32_t>& addresses) {
  if (!addresses.empty()) install_branch(device(), tariff_branch(side(), as_given(t)), false);
}

void HtbMarkIntf::_create_fw_leaves(const GlobalSettings& g, const TariffSet& set) {
  update_fw_leaves(g, TariffSet(), set, false);
}

void HtbMarkIntf::create_fw_leaves(const GlobalSettings& g, const TariffSet& set) {
  if (has_tree(as_given(g, side().way))) _create_fw_leaves(g, set);
}

void HtbMarkIntf::delete_fw_leaf(const TariffDirSettings& t, bool remove,
                                 const std::vector<std::uint32_t>& addresses) {
  if (addresses.empty() || !remove) return;
  const ClassBranch branch = tariff_branch(side(), as_given(t));
  remove_branch(device(), {branch.htb, branch.leaf, {}});
}

void HtbMarkIntf::update_fw_leaves(const GlobalSettings& g, const TariffSet& removed,
                                   const TariffSet& added, bool remove) {
  update_leaves(g, removed, added, remove);
}

}  // namespace quenby
