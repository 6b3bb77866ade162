#include "cli/system.h"
#include "shaper/address_set.h"
#include "shaper/desired_state.h"
#include "shaper/hardware.h"
#include "shaper/htb_shaper.h"
#include "tc/firewall_rules.h"
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
  TariffChange change = plan_change(set, current, removed, added, link_speed(set.global.wan));
  const bool in_place = change.reason == ChangeReason::in_place && everything_stands(change.before);
  if (has_wan) {
    del_ipset_tariffs(removed);
    add_ipset_entries(change.kept);
  }

  if (change.reason == ChangeReason::last_tariff) {
    keep_line_only(change);
    if (has_wan) mend_changed(change, removed, added);
  } else if (!in_place) {
    // Building only empties the drop chain when it is going to need it.
    if (has_wan && needs_drop_chain(change.before.line)) run_or_exit(drop_chain_commands());
    create(std::move(set), std::move(change.tariffs));
  } else {
    change_in_place(change, removed);
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
// somebody deleted what a change relies on. The set's last entry is the last but the rules that a
// build makes; those no run can look at without the shell.
bool HtbShaper::everything_stands(const ResolvedSettings& settings) {
  const Devices both = devices(settings.line.global);
  const DesiredState standing = desired_state(settings, {true, ""});
  const bool has_trees =
      both.upload->stands(standing.upload) && both.download->stands(standing.download);
  if (!has_trees || standing.addresses.empty()) return has_trees;
  return has_address(netfilter_, standing.addresses.back().address);
}

void HtbShaper::keep_line_only(const TariffChange& change) {
  const GlobalSet& configured = change.after.configured;
  if (!configured.has_global) return clear(configured);
  const bool has_wan = !configured.global.wan.empty();
  const Devices both = devices(configured.global);
  const DesiredState wanted = desired_state(change.after, {link_exists(configured), ""});
  for (const Direction way : kDirections) both.at(way).setup(wanted.tree(way));
  // Without tariffs a direction may be blocked that was open for them.
  clean_rules(both, has_wan && (needs_drop_chain(change.before.line) ||
                                needs_drop_chain(change.after.line)));
  run_list(wanted.firewall);
}

void HtbShaper::change_in_place(const TariffChange& change, const TariffSet& removed) {
  for (const Direction way : kDirections) {
    const std::int64_t configured = change.before.configured.global.direction(way).speed;
    const GlobalDirSettings& previous = change.before.line.global.direction(way);
    const bool remove = configured != kNeverSet || previous.speed != kNeverSet;
    update_intf(way == Direction::download, change.after.line.global, change.created, removed,
                previous, configured, remove, change.after.summary.link_speed,
                change.after.root_burst(way));
  }
}

void HtbShaper::update_intf(bool ingress, const GlobalSettings& settings, const TariffSet& added,
                            const TariffSet& removed, const BandwidthSettings& previous,
                            std::int64_t configured, bool remove, std::int64_t /*link_speed*/,
                            std::int64_t burst) {
  const std::unique_ptr<HtbIntf> intf = device(settings, direction_of(ingress));
  intf->change(device_change(intf->side(), {settings, previous.speed, configured, burst},
                             intf->has_tree(settings), {removed, added, remove},
                             intf->standing_filters()));
}

}  // namespace quenby
