#include "tc/htb_imq_intf.h"

#include <algorithm>

#include "tc/assert.h"
#include "tc/firewall_rules.h"

namespace quenby {
namespace {

constexpr const char* kImqName = "imq0";
constexpr unsigned kPrio = 1;

bool is_shaped(const TariffSettings& tariff, bool ingress) {
  return !tariff.addresses.empty() && tariff.direction(ingress).speed != kNeverSet;
}

}  // namespace

HtbImqIntf::HtbImqIntf(bool ingress, SocketPtr& sock, CachePtr& link_cache)
    : HtbIntf(kImqName, ingress, sock, link_cache) {}

HandleScheme HtbImqIntf::scheme() const {
  return ingress() ? HandleScheme::imq_download : HandleScheme::imq_upload;
}

void HtbImqIntf::setup(GlobalSet& set, const GlobalSet& /*given*/, bool /*tariffs*/,
                       std::int64_t /*link_speed*/) {
  if (!ingress()) {
    init_qdisc(set);
    create_root_leaf(set.global.upload);
    return;
  }
  // The upload object may have made the device after this one looked for it.
  find_link();
  const bool has_root = create_root_leaf(set.global.download) >= 0;
  if (has_root && set.defaults.download.speed != kNeverSet) create_def_leaf(set.defaults.download);
}

void HtbImqIntf::teardown(const GlobalSet& /*set*/) {
  if (!ingress()) root_qdisc_del();
}

void HtbImqIntf::create_leaves(const GlobalSettings& g, const TariffSet& set) {
  create_ht_leaves(g, set);
}

void HtbImqIntf::update_leaves(const GlobalSettings& g, const TariffSet& removed,
                               const TariffSet& added, bool remove) {
  update_ht_leaves(g, removed, added, remove);
}

void HtbImqIntf::update_filter(const GlobalSettings& /*g*/, std::int64_t /*speed*/,
                               bool /*redirect*/, bool /*restore_mark*/) {}

std::string& HtbImqIntf::fill_fw_rules(const GlobalSet& /*set*/, std::string& list) const {
  if (!ingress()) append_commands(list, imq_egress_rules());
  return list;
}

unsigned HtbImqIntf::base_ht_id() const { return base_table(scheme()).id; }

unsigned HtbImqIntf::base_ht_node() const { return base_link(scheme()).node; }

void HtbImqIntf::def_qdisc_op(const BandwidthSettings& def, htb_action action) {
  TC_ASSERT(def.download() == ingress());
  if (ingress()) default_leaf_op(def, kDefaultClass, action);
}

void HtbImqIntf::class_op(const TariffDirSettings& t, htb_action action) {
  TC_ASSERT(t.download() == ingress());
  tariff_class_op(t, action);
}

void HtbImqIntf::def_class_op(const BandwidthSettings& def, htb_action action) {
  TC_ASSERT(def.download() == ingress());
  if (ingress()) default_class_op(def, kDefaultClass, 0, action);
}

void HtbImqIntf::create_base_ht(const GlobalSettings& g, const TariffSet& set) {
  const bool any =
      std::any_of(set.tariffs().begin(), set.tariffs().end(),
                  [this](const TariffSettings& tariff) { return is_shaped(tariff, ingress()); });
  if (g.direction(ingress()).speed == kNeverSet && !any) return;
  add_ht(base_table(scheme()), kPrio, false);
  add_ht_filter(base_link(scheme()), kPrio);
}

void HtbImqIntf::create_ht_leaf(const TariffDirSettings& t, AddressTree& tree,
                                const std::vector<std::uint32_t>& addresses, bool tolerate) {
  if (addresses.empty()) return;
  class_op(t, htb_action::create);
  for (const std::uint32_t address : addresses) {
    const AddressFilters filters = tree.add(address, static_cast<unsigned>(t.id));
    if (filters.table) add_ht(*filters.table, kPrio, tolerate);
    if (filters.link) add_ht_filter(*filters.link, kPrio);
    add_ht_filter(filters.address, kPrio);
  }
  create_qdisc(t);
}

void HtbImqIntf::create_ht_leaves(const GlobalSettings& g, const TariffSet& set) {
  create_base_ht(g, set);
  if (!has_tree(g)) return;
  AddressTree tree(scheme());
  fill_tree(g.direction(ingress()), set, tree, false);
}

void HtbImqIntf::fill_tree(const GlobalDirSettings& line, const TariffSet& set, AddressTree& tree,
                           bool tolerate) {
  int largest_burst = 0;
  for (const TariffSettings& tariff : set.tariffs()) {
    if (!is_shaped(tariff, ingress())) continue;
    const TariffDirSettings& direction = tariff.direction(ingress());
    create_ht_leaf(direction, tree, tariff.addresses, tolerate);
    largest_burst = std::max(largest_burst, direction.burstSize());
  }
  update_root_leaf_burst(line, largest_burst);
}

void HtbImqIntf::delete_ht_leaf(const TariffDirSettings& t, bool remove,
                                const std::vector<std::uint32_t>& addresses) {
  if (addresses.empty() || !remove) return;
  delete_qdisc(t);
  for (const std::uint32_t handle : filters().of_class(chandle(static_cast<unsigned>(t.id))))
    del_ht_filter(handle, kPrio);
  class_op(t, htb_action::remove);
}

void HtbImqIntf::update_ht_leaves(const GlobalSettings& g, const TariffSet& removed,
                                  const TariffSet& added, bool remove) {
  if (!has_tree(g)) return;
  for (const TariffSettings& tariff : removed.tariffs())
    delete_ht_leaf(tariff.direction(ingress()), remove, tariff.addresses);
  if (g.direction(ingress()).speed == 0) return;
  AddressTree tree(scheme());
  for (const std::uint32_t handle : filters().handles()) tree.note(handle);
  if (!tree.has_base()) create_base_ht(g, added);
  fill_tree(g.direction(ingress()), added, tree, true);
}

bool HtbImqIntf::wants_tree(const GlobalSettings& g) const {
  return g.direction(ingress()).speed != kNeverSet;
}

bool HtbImqIntf::stands(const GlobalSettings& g) const { return !wants_tree(g) || htb_stands(); }

const U32Inventory& HtbImqIntf::filters() {
  if (!filters_) filters_.emplace(alloc_cls_cache());
  return *filters_;
}

std::string& HtbIngrImqIntf::fill_fw_rules(const GlobalSet& set, std::string& list) const {
  if (ingress()) append_commands(list, imq_ingress_rules(set.global.wan));
  return list;
}

}  // namespace quenby
