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
  const std::vector<StandingIp6Redirection> ip6 = filters.ip6_for(device().ifindex);
  if (handles.empty() && ip6.empty()) return;
  quenby::delete_qdisc(wan, htb_root(false));
  if (filters.others || handles.size() < filters.redirections.size() ||
      ip6.size() < filters.ip6.size()) {
    for (const StandingIp6Redirection& one : ip6)
      delete_filter(wan, "u32", kIngressHandle, one.handle, kIp6RedirectionPrio, ETH_P_IPV6);
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
  const IngressFilters found = ingress_filters(self.sock, feeder);
  const auto feeds = [&self](const auto& redirection) {
    return redirection.target == self.ifindex;
  };
  return std::any_of(found.redirections.begin(), found.redirections.end(), feeds) &&
         (tree.path.ip6_feed.empty() || std::any_of(found.ip6.begin(), found.ip6.end(), feeds));
}

void HtbIfbIntf::change_path(const MarkPath& path) {
  del_filter(name(), kHtbMajor, kClassifierPrio, nullptr);
  del_filter(path.feeder, kIngressMajor, kRedirectionPrio, nullptr);
  if (path.classifier) add_fw_filter(kClassifierPrio);
  if (!path.feed.empty()) run_or_exit(path.feed);
  remake_ip6_classifiers(path);
  if (path.ip6_feed.empty()) return;
  delete_filters(device(index_of(links(), path.feeder)), kIngressHandle, kIp6RedirectionPrio,
                 nullptr, ETH_P_IPV6);
  run_or_exit(path.ip6_feed);
}

std::string& HtbIfbIntf::fill_fw_rules(const GlobalSet& set, std::string& list) const {
  const ResolvedLine line = as_given(set, side().way);
  append_commands(list, download_rules(line, chandle(kDefaultTariffClass), link_exists(line.wan)));
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
