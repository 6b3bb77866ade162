#include "tc/htb_intf.h"

#include "cli/error.h"
#include "tc/assert.h"
#include "tc/classes.h"
#include "tc/filters.h"
#include "tc/firewall_rules.h"
#include "tc/htb_class.h"
#include "tc/links.h"
#include "tc/qdiscs.h"
#include "tc/tree_walk.h"

namespace quenby {

HtbIntf::HtbIntf(const std::string& name, const Side& side, SocketPtr& sock, CachePtr& link_cache)
    : name_(name),
      side_(side),
      sock_(sock),
      link_cache_(link_cache),
      link_(nullptr, rtnl_link_put) {
  find_link();
}

void HtbIntf::find_link() { link_ = quenby::find_link(links(), name_); }

Device HtbIntf::device() const {
  const int ifindex = has_link() ? rtnl_link_get_ifindex(link_.get()) : 0;
  return {name_, sock_.get(), link_.get(), ifindex};
}

Device HtbIntf::device(int ifindex) const { return {name_, sock_.get(), nullptr, ifindex}; }

void HtbIntf::create_leaves(const DeviceTree& tree) { install_tariffs(device(), tree); }

void HtbIntf::change(const DeviceChange& change) {
  if (!has_link()) return;
  apply_change(device(), change);
  if (change.path) change_path(*change.path);
}

bool HtbIntf::has_tree(const ResolvedLine& line) const {
  return has_link() && wants_tree(side_, line);
}

void HtbIntf::update_leaves(const GlobalSettings& g, const TariffSet& removed,
                            const TariffSet& added, bool remove) {
  const ResolvedLine line = as_given(g, side_.way);
  const std::vector<ResolvedTariff> made = as_given(added, side_.way, line.ipv6);
  const bool tree = has_tree(line);
  const U32Inventory standing = tree ? standing_filters() : U32Inventory();
  change(branch_changes(side_, line, tree, {removed, made, remove}, standing));
  if (tree && !line.blocked()) update_root_leaf_burst(g.direction(side_.way), largest_burst(made));
}

void HtbIntf::fill_clean_fw_rules(std::string& list) const {
  if (!ingress()) append_commands(list, clean_rules());
}

bool HtbIntf::link_exists(const std::string& name) const { return index_of(links(), name) != 0; }

void HtbIntf::link_add() {
  add_link(device(), kind(), links());
  find_link();
  if (!has_link()) _error("Cannot allocate link " + name_);
}

void HtbIntf::link_del() {
  delete_link(device(), links());
  link_.reset();
}

void HtbIntf::root_qdisc_add(bool with_default) { add_qdisc(device(), htb_root(with_default)); }

void HtbIntf::root_qdisc_del() { delete_root_qdisc(device()); }

void HtbIntf::init_device() {
  if (has_link()) {
    root_qdisc_del();
  } else {
    link_add();
  }
}

void HtbIntf::init_qdisc(const GlobalSet& g) {
  init_device();
  root_qdisc_add(g.defaults.direction(side_.way).speed != kNeverSet);
}

void HtbIntf::qdisc_op(const std::string& kind, std::uint32_t handle, std::uint32_t parent,
                       const BandwidthSettings& s, htb_action action, const QdiscSetup& setup) {
  if (action == htb_action::create) {
    add_qdisc(device(), kind, handle, parent, [&](rtnl_qdisc* qdisc) { setup(s, qdisc); });
  } else if (action == htb_action::remove) {
    quenby::delete_qdisc(device(), kind, handle, parent);
  } else {
    _error(name_ + ": wrong " + kind + " action " + action_name(action));
  }
}

void HtbIntf::qdisc_op(const Qdisc& qdisc, htb_action action) {
  if (action == htb_action::create) {
    add_qdisc(device(), qdisc);
  } else if (action == htb_action::remove) {
    quenby::delete_qdisc(device(), qdisc);
  } else {
    _error(name_ + ": wrong " + kind_name(qdisc.kind) + " action " + action_name(action));
  }
}

void HtbIntf::class_op(unsigned cid, unsigned parent, std::int64_t ceil, std::int64_t rate,
                       std::int64_t& burst, htb_action action) {
  const HtbClass values = htb_class(cid, parent, {ceil, rate, burst});
  if (action != htb_action::remove) burst = values.burst;
  class_op(values, action);
}

void HtbIntf::class_op(const HtbClass& values, htb_action action) {
  if (action == htb_action::create) {
    add_class(device(), values);
  } else if (action == htb_action::update) {
    replace_class(device(), values);
  } else if (action == htb_action::remove) {
    delete_class(device(), values);
  } else {
    _error(name_ + ": cls " + std::to_string(TC_H_MIN(values.handle)) + " wrong action " +
           action_name(action));
  }
}

std::int64_t HtbIntf::create_root_leaf(const BandwidthSettings& root) {
  TC_ASSERT(root.download() == ingress());
  if (root.speed == kNeverSet) return -1;
  const HtbClass values = root_class(side_.scheme, root.speed, 0);
  add_class(device(), values);
  return values.burst;
}

void HtbIntf::update_root_leaf(const BandwidthSettings& root) {
  TC_ASSERT(root.download() == ingress());
  if (!has_link() || root.speed == kNeverSet) return;
  replace_class(device(), root_class(side_.scheme, root.speed, 0));
}

void HtbIntf::update_root_leaf_burst(const BandwidthSettings& root, std::int64_t burst) {
  if (root.speed == kNeverSet) return;
  if (class_burst(static_cast<double>(root.speed), psched_hz()) >= burst) return;
  replace_class(device(), root_class(side_.scheme, root.speed, burst));
}

void HtbIntf::tariff_class_op(const TariffDirSettings& t, htb_action action) {
  class_op(tariff_branch(side_, as_given(t)).htb, action);
}

void HtbIntf::default_class_op(const BandwidthSettings& def, unsigned number, std::int64_t rate,
                               htb_action action) {
  const bool makes = action == htb_action::create || action == htb_action::update;
  if (action != htb_action::remove && (!makes || def.speed == kNeverSet)) return;
  class_op(htb_class(cid(number), root_cid(), {def.speed, rate, 0}), action);
}

void HtbIntf::leaf_op(const TariffDirSettings& t, int kind, htb_action action) {
  ResolvedTariff tariff = as_given(t);
  tariff.qdisc = kind;
  const std::optional<Qdisc> leaf = tariff_leaf(side_.scheme, tariff);
  if (leaf) qdisc_op(*leaf, action);
}

void HtbIntf::pfifo_op(const TariffDirSettings& t, htb_action action) {
  leaf_op(t, kQdiscPfifo, action);
}

void HtbIntf::sfq_op(const TariffDirSettings& t, htb_action action) {
  leaf_op(t, kQdiscSfq, action);
}

void HtbIntf::fq_codel_op(const TariffDirSettings& t, htb_action action) {
  leaf_op(t, kQdiscFqCodel, action);
}

void HtbIntf::tariff_qdisc_op(const TariffDirSettings& tariff, htb_action action) {
  TC_ASSERT(tariff.download() == ingress());
  leaf_op(tariff, tariff.qdisc, action);
}

void HtbIntf::create_qdisc(const TariffDirSettings& tariff) {
  TC_ASSERT(tariff.download() == ingress());
  tariff_qdisc_op(tariff, htb_action::create);
}

void HtbIntf::delete_qdisc(const TariffDirSettings& tariff) {
  TC_ASSERT(tariff.download() == ingress());
  tariff_qdisc_op(tariff, htb_action::remove);
}

void HtbIntf::create_def_leaf(const BandwidthSettings& def) {
  def_class_op(def, htb_action::create);
  def_qdisc_op(def, htb_action::create);
}

void HtbIntf::default_leaf_op(const BandwidthSettings& def, unsigned number, htb_action action) {
  qdisc_op(default_leaf(side_.scheme, number, def.speed), action);
}

void HtbIntf::add_ht(const U32Table& table, unsigned prio, bool tolerate) {
  add_u32_table(device(), table, prio, tolerate);
}

void HtbIntf::add_ht_filter(const U32Filter& filter, unsigned prio) {
  add_u32_filter(device(), filter, prio);
}

void HtbIntf::del_filter(const std::string& dev, std::uint32_t parent_major, unsigned prio,
                         const char* kind) {
  delete_filters(device(index_of(links(), dev)), parent_major << 16, prio, kind);
}

void HtbIntf::nl_error(const std::string& what, int code) const { device().nl_error(what, code); }

void HtbIntf::chk_nl_error(const std::string& what, int code, bool ignore) const {
  if (!ignore) device().chk_nl_error(what, code);
}

}  // namespace quenby
