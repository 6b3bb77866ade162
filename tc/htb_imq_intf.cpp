#include "tc/htb_imq_intf.h"

#include "tc/assert.h"
#include "tc/filters.h"
#include "tc/firewall_rules.h"
#include "tc/links.h"
#include "tc/tree_walk.h"

namespace quenby {

HtbImqIntf::HtbImqIntf(bool ingress, SocketPtr& sock, CachePtr& link_cache)
    : HtbIntf(kImqName, imq_side(direction_of(ingress)), sock, link_cache) {}

void HtbImqIntf::setup(const DeviceTree& tree) {
  if (tree.root) {
    init_device();
  } else {
    // The upload object may have made the device after this one looked for it.
    find_link();
  }
  install_line(device(), tree);
}

void HtbImqIntf::teardown(const GlobalSet& /*set*/) {
  if (!ingress()) root_qdisc_del();
}

void HtbImqIntf::create_leaves(const GlobalSettings& g, const TariffSet& set) {
  create_ht_leaves(g, set);
}

void HtbImqIntf::update_filter(const GlobalSettings& /*g*/, std::int64_t /*speed*/,
                               bool /*redirect*/, bool /*restore_mark*/) {}

void HtbImqIntf::change_path(const MarkPath& /*path*/) {}

std::string& HtbImqIntf::fill_fw_rules(const GlobalSet& /*set*/, std::string& list) const {
  if (!ingress()) append_commands(list, imq_upload_rules());
  return list;
}

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
  const Direction way = side().way;
  const auto base = address_base(side(), as_given(g, way), as_given(set, way));
  if (base) install_base(device(), *base);
}

void HtbImqIntf::create_ht_leaf(const TariffDirSettings& t, AddressTree& tree,
                                const std::vector<std::uint32_t>& addresses, bool tolerate) {
  if (addresses.empty()) return;
  const ResolvedTariff tariff = as_given(t, addresses);
  ClassBranch branch = tariff_branch(side(), tariff);
  branch.matches = address_matches(side(), tariff, tree);
  install_branch(device(), branch, tolerate);
}

void HtbImqIntf::create_ht_leaves(const GlobalSettings& g, const TariffSet& set) {
  create_base_ht(g, set);
  const ResolvedDirection direction = {as_given(g, side().way), as_given(set, side().way)};
  if (!has_tree(direction.line)) return;
  AddressTree tree(side().scheme);
  for (const ClassBranch& branch : tariff_branches(side(), direction, tree))
    install_branch(device(), branch, false);
  update_root_leaf_burst(g.direction(side().way), largest_burst(direction.tariffs));
}

void HtbImqIntf::delete_ht_leaf(const TariffDirSettings& t, bool remove,
                                const std::vector<std::uint32_t>& addresses) {
  if (addresses.empty() || !remove) return;
  const ClassBranch branch = tariff_branch(side(), as_given(t));
  remove_branch(device(),
                {branch.htb, branch.leaf, standing_filters().of_class(branch.htb.handle)});
}

void HtbImqIntf::update_ht_leaves(const GlobalSettings& g, const TariffSet& removed,
                                  const TariffSet& added, bool remove) {
  update_leaves(g, removed, added, remove);
}

bool HtbImqIntf::stands(const DeviceTree& tree) const {
  return tree.line.empty() || tree_stands(device(), tree);
}

U32Inventory HtbImqIntf::standing_filters() const {
  return has_link() ? U32Inventory(list_filters(device())) : U32Inventory();
}

std::string& HtbIngrImqIntf::fill_fw_rules(const GlobalSet& set, std::string& list) const {
  if (ingress()) append_commands(list, imq_download_rules(set.global.wan));
  return list;
}

}  // namespace quenby
