#include "tc/htb_ifb_intf.h"

#include <algorithm>

#include "cli/system.h"
#include "tc/assert.h"
#include "tc/firewall_rules.h"
#include "tc/redirect.h"
#include "tc/redirection.h"

namespace quenby {

HtbIfbIntf::HtbIfbIntf(SocketPtr& sock, CachePtr& link_cache)
    : HtbMarkIntf(kIfbName, true, sock, link_cache) {}

void HtbIfbIntf::setup(GlobalSet& set, const GlobalSet& given, bool tariffs,
                       std::int64_t link_speed) {
  root_qdisc_del();
  const std::int64_t speed = set.global.download.speed;
  if (!link_exists(set.global.wan) || speed == kNeverSet || speed == 0) return;
  if (!has_link()) link_add();
  build_tree(set, given, tariffs, link_speed);
}

void HtbIfbIntf::teardown(const GlobalSet& /*set*/) {
  for (const int link : link_indexes(links())) release(link);
  link_del();
}

// A redirection to a deleted device drops every packet. It goes last, because it is what a run
// after one that was killed finds the device by.
void HtbIfbIntf::release(int feeder) {
  const IngressFilters filters = ingress_filters(sock(), feeder);
  const std::vector<std::uint32_t> handles = filters.handles_for(ifindex());
  if (handles.empty()) return;
  del_qdisc_of(feeder, "htb", kHtbHandle, TC_H_ROOT);
  if (filters.others || handles.size() < filters.redirections.size()) {
    for (const std::uint32_t handle : handles) del_redirection(feeder, handle);
  } else {
    del_qdisc_of(feeder, "ingress", kIngressHandle, TC_H_INGRESS);
  }
}

bool HtbIfbIntf::stands(const GlobalSettings& g) const {
  if (!wants_tree(g)) return true;
  if (!htb_stands()) return false;
  const std::vector<Redirection> found = ingress_filters(sock(), ifindex_of(g.wan)).redirections;
  return std::any_of(found.begin(), found.end(),
                     [this](const Redirection& r) { return r.target == ifindex(); });
}

void HtbIfbIntf::update_filter(const GlobalSettings& g, std::int64_t /*speed*/, bool /*redirect*/,
                               bool restore_mark) {
  if (!has_link() || !link_exists(g.wan)) return;
  del_filter(name(), kHtbMajor, 1, nullptr);
  del_filter(g.wan, kIngressMajor, 1, nullptr);
  if (g.download.speed == kNeverSet || g.download.speed == 0) return;
  if (restore_mark) add_fw_filter(1);
  run_or_exit(redirect_command(g.wan, restore_mark));
}

std::string& HtbIfbIntf::fill_fw_rules(const GlobalSet& set, std::string& list) const {
  append_commands(list,
                  ingress_rules(set, chandle(kDefaultTariffClass), link_exists(set.global.wan)));
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
