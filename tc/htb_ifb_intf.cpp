#include "tc/htb_ifb_intf.h"

#include <algorithm>

#include "cli/system.h"
#include "tc/assert.h"
#include "tc/filters.h"
#include "tc/firewall_rules.h"
#include "tc/links.h"
#include "tc/qdiscs.h"
#include "tc/redirection.h"
#include "tc/tree_walk.h"

namespace quenby {

HtbIfbIntf::HtbIfbIntf(SocketPtr& sock, CachePtr& link_cache)
    : HtbMarkIntf(kIfbName, Direction::download, sock, link_cache) {}

void HtbIfbIntf::setup(const DeviceTree& tree) {
  root_qdisc_del();
  if (!tree.root) return;
  if (!has_link()) link_add();
  install_line(device(), tree);
  change_path(tree.path);
}

void HtbIfbIntf::teardown(const GlobalSet& /*set*/) {
  for (const int link : link_indexes(links())) release(link);
  link_del();
}

// A redirection to a deleted device drops every packet. It goes last, because it is what a run
// after one that was killed finds the device by.
void HtbIfbIntf::release(int feeder) {
  const Device wan = device(feeder);
  const IngressFilters filters = ingress_filters(wan.sock, feeder);
  const std::vector<std::uint32_t> handles = filters.handles_for(device().ifindex);
  if (handles.empty()) return;
  quenby::delete_qdisc(wan, htb_root(false));
  if (filters.others || handles.size() < filters.redirections.size()) {
    for (const std::uint32_t handle : handles)
      delete_u32_filter(wan, kIngressHandle, handle, kRedirectionPrio);
  } else {
    quenby::delete_qdisc(wan, ingress_qdisc());
  }
}

bool HtbIfbIntf::stands(const DeviceTree& tree) const {
  if (!tree.root) return true;
  if (!tree_stands(device(), tree)) return false;
  const Device self = device();
  const int feeder = index_of(links(), tree.path.feeder);
  const std::vector<Redirection> found = ingress_filters(self.sock, feeder).redirections;
  return std::any_of(found.begin(), found.end(),
                     [&self](const Redirection& r) { return r.target == self.ifindex; });
}

void HtbIfbIntf::change_path(const MarkPath& path) {
  del_filter(name(), kHtbMajor, kClassifierPrio, nullptr);
  del_filter(path.feeder, kIngressMajor, kRedirectionPrio, nullptr);
  if (path.classifier) add_fw_filter(kClassifierPrio);
  if (!path.feed.empty()) run_or_exit(path.feed);
}

std::string& HtbIfbIntf::fill_fw_rules(const GlobalSet& set, std::string& list) const {
  append_commands(list,
                  download_rules(set, chandle(kDefaultTariffClass), link_exists(set.global.wan)));
  return list;
}

void HtbIfbIntf::def_qdisc_op(const BandwidthSettings& def, htb_action action) {
  TC_ASSERT(def.download());
  default_leaf_op(def, kDefaultClass, action);
}

void HtbIfbIntf::class_op(const TariffDirSettings& t, htb_action action) {
  TC_ASSERT(t.download());
  tariff_class_op(t, action);
}

void HtbIfbIntf::def_class_op(const BandwidthSettings& def, htb_action action) {
  TC_ASSERT(def.download());
  default_class_op(def, kDefaultClass, 0, action);
}

void HtbIfbIntf::def_tar_class_op(const BandwidthSettings& def, htb_action action) {
  TC_ASSERT(def.download());
  default_class_op(def, kDefaultTariffClass, def.rateBps(), action);
}

void HtbIfbIntf::def_tar_qdisc_op(const BandwidthSettings& def, htb_action action) {
  TC_ASSERT(def.download());
  default_leaf_op(def, kDefaultTariffClass, action);
}

}  // namespace quenby
