#include "cli/system.h"
#include "shaper/address_set.h"
#include "shaper/firewall.h"
#include "shaper/hardware.h"
#include "shaper/htb_shaper.h"
#include "tc/handles.h"

// Changing tariffs while shaping runs. Addresses leave the set before their classes go, and enter
// it once the new classes are there, so that no packet is marked for a class that is missing.
namespace quenby {
namespace {

// The marks of connections that a change concerns. While a tariff is changed, and before it is
// added, connections of its addresses begin with the default tariff's mark.
std::vector<std::uint32_t> marks_before(const TariffSet& removed, const TariffSet& added) {
  std::vector<std::uint32_t> marks;
  for (const AddressSetEntry& entry : address_set_entries(removed)) marks.push_back(entry.mark);
  if (!added.empty()) marks.push_back(class_mark(kDefaultTariffClass));
  return marks;
}

}  // namespace

void HtbShaper::update_tariffs(GlobalSet set, const TariffSet& current, const TariffSet& removed,
                               const TariffSet& added) {
  const bool has_wan = !set.global.wan.empty();
  const std::int64_t speed = link_speed(set.global.wan);
  TariffChange change = plan_change(set, current, removed, added, speed);
  if (has_wan) {
    del_ipset_tariffs(removed);
    add_ipset_entries(change.kept);
  }

  if (change.tariffs.empty()) {
    keep_line_only(set, change, speed);
    if (has_wan) mend_changed(change, removed, added);
  } else if (change.rebuild || !everything_stands(change.before.global)) {
    // Building only empties the drop chain when it is going to need it.
    if (has_wan && needs_drop_chain(change.before)) run_or_exit(drop_chain_commands());
    create(std::move(set), std::move(change.tariffs));
  } else {
    change_in_place(set, change, removed, speed);
    if (!has_wan) return;
    add_ipset_tariffs(added);
    add_ipset_entries(change.settled);
    mend_changed(change, removed, added);
  }
}

void HtbShaper::mend_changed(const TariffChange& change, const TariffSet& removed,
                             const TariffSet& added) {
  const std::vector<std::uint32_t> marks = marks_before(removed, added);
  // A shared address may have had any of its owners' marks.
  const bool shared = !change.settled.empty();
  if (!marks.empty()) mend_connections(change.tariffs, shared ? any_mark() : one_of(marks));
}

void HtbShaper::add_tariffs(GlobalSet set, const TariffSet& current, const TariffSet& added) {
  update_tariffs(std::move(set), current, TariffSet(), added);
}

void HtbShaper::del_tariffs(GlobalSet set, const TariffSet& current, const TariffSet& removed) {
  update_tariffs(std::move(set), current, removed, TariffSet());
}

// False after a teardown or a run that was killed, when the WAN device has just come up, and when
// somebody deleted what a change relies on.
bool HtbShaper::everything_stands(const GlobalSettings& settings) {
  const Devices both = devices(settings);
  return both.egress->stands(settings) && both.ingress->stands(settings);
}

void HtbShaper::keep_line_only(const GlobalSet& set, TariffChange& change,
                               std::int64_t link_speed) {
  if (!set.has_global) return clear(set);
  const bool has_wan = !set.global.wan.empty();
  const Devices both = devices(set.global);
  both.egress->setup(change.after, set, false, link_speed);
  both.ingress->setup(change.after, set, false, link_speed);
  // Without tariffs a direction may be blocked that was open for them.
  clean_rules(both, has_wan && (needs_drop_chain(change.before) || needs_drop_chain(change.after)));
  fill_rules(both, change.after);
}

void HtbShaper::change_in_place(const GlobalSet& set, TariffChange& change,
                                const TariffSet& removed, std::int64_t link_speed) {
  for (const bool ingress : {false, true}) {
    const std::int64_t configured = set.global.direction(ingress).speed;
    const GlobalDirSettings& previous = change.before.global.direction(ingress);
    const bool remove = configured != kNeverSet || previous.speed != kNeverSet;
    update_intf(ingress, change.after.global, change.created, removed, previous, configured, remove,
                link_speed);
  }
}

void HtbShaper::update_intf(bool ingress, GlobalSettings& settings, const TariffSet& added,
                            const TariffSet& removed, const BandwidthSettings& previous,
                            std::int64_t configured, bool remove, std::int64_t link_speed) {
  GlobalDirSettings& line = settings.direction(ingress);
  const std::unique_ptr<HtbIntf> intf = device(settings, ingress);
  // Rate resolution has put the largest burst of all tariffs there.
  const std::int32_t largest_burst = line.burst;
  if (intf->has_tree(settings)) intf->update_root_leaf(line);
  intf->update_leaves(settings, removed, added, remove);
  if (intf->has_tree(settings)) intf->update_root_leaf_burst(line, largest_burst);

  const FilterUpdate update = filter_update(!added.empty(), !removed.empty(), configured,
                                            previous.speed, line.speed, link_speed);
  if (update.needed) intf->update_filter(settings, configured, update.redirect, true);
}

}  // namespace quenby
