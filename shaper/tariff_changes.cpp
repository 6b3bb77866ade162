#include <algorithm>

#include "cli/system.h"
#include "shaper/address_set.h"
#include "shaper/desired_state.h"
#include "shaper/hardware.h"
#include "shaper/htb_shaper.h"
#include "shaper/ipv6_note.h"
#include "tc/firewall_rules.h"
#include "tc/handles.h"

// Changing tariffs while shaping runs. Addresses leave the set before their classes go, and enter
// it once the new classes are there, so that no packet is marked for a class that is missing.
namespace quenby {
namespace {

// Whether the set has the last entry of a list, if there is one.
template <typename Key>
bool has_last(const SocketPtr& netfilter, const std::vector<SetEntry<Key>>& entries) {
  return entries.empty() || has_address(netfilter, entries.back().address);
}

// The marks of connections that a change concerns. While a tariff is changed, and before it is
// added, connections of its addresses begin with the default tariff's mark.
std::vector<std::uint32_t> marks_before(const TariffSet& removed, const TariffSet& added,
                                        bool ipv6) {
  std::vector<std::uint32_t> marks;
  for (const AddressSetEntry& entry : address_set_entries(removed)) marks.push_back(entry.mark);
  if (ipv6) {
    for (const PrefixSetEntry& entry : prefix_set_entries(removed)) marks.push_back(entry.mark);
  }
  if (!added.empty()) marks.push_back(class_mark(kDefaultTariffClass));
  return marks;
}

bool has_prefixes(const TariffSet& set) {
  return std::any_of(set.tariffs().begin(), set.tariffs().end(),
                     [](const TariffSettings& tariff) { return !tariff.prefixes.empty(); });
}

}  // namespace

void HtbShaper::update_tariffs(GlobalSet set, const TariffSet& current, const TariffSet& removed,
                               const TariffSet& added) {
  const bool has_wan = !set.global.wan.empty();
  const bool ipv6 = set.global.shapes_ipv6();
  TariffChange change = plan_change(set, current, removed, added, link_speed(set.global.wan));
  const bool in_place = change.reason == ChangeReason::in_place && everything_stands(change.before);
  const DeviceChanges changes = in_place ? device_changes(change, removed) : DeviceChanges();
  if (has_wan) {
    del_ipset_tariffs(removed);
    add_ipset_entries(change.kept);
  }
  if (ipv6) {
    del_ipset_entries(prefix_set_entries(removed));
    add_ipset_entries(change.kept_prefixes);
  }

  if (change.reason == ChangeReason::last_tariff) {
    keep_line_only(change);
    if (has_wan) mend_changed(change, removed, added);
  } else if (!in_place) {
    // Building only empties the drop chain when it is going to need it.
    if (has_wan && needs_drop_chain(change.before)) {
      run_or_exit(drop_chain_commands());
      if (ipv6) run_or_exit(drop_chain_commands(Family::ipv6));
    }
    create(std::move(set), std::move(change.after.tariffs));
  } else {
    for (const Direction way : kDirections) device(set.global, way)->change(changes.at(way));
    if (!has_wan) return;
    add_ipset_tariffs(added);
    add_ipset_entries(change.settled);
    if (ipv6) {
      add_ipset_entries(prefix_set_entries(added));
      add_ipset_entries(change.settled_prefixes);
    }
    mend_changed(change, removed, added);
  }
}

void HtbShaper::mend_changed(const TariffChange& change, const TariffSet& removed,
                             const TariffSet& added) {
  const bool ipv6 = change.after.configured.global.shapes_ipv6();
  const std::vector<std::uint32_t> marks = marks_before(removed, added, ipv6);
  // A shared address may have had any of its owners' marks, and so may one of nested prefixes.
  const bool shared = change.shared || (ipv6 && has_prefixes(added));
  if (!marks.empty())
    mend_connections(change.after.tariffs, ipv6, shared ? any_mark() : one_of(marks));
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
  const Devices both = devices(settings.configured.global);
  const DesiredState standing = desired_state(settings, {true, ""});
  const bool has_trees =
      both.upload->stands(standing.upload) && both.download->stands(standing.download);
  return has_trees && has_last(session_.netfilter, standing.addresses) &&
         has_last(session_.netfilter, standing.prefixes);
}

void HtbShaper::keep_line_only(const TariffChange& change) {
  const GlobalSet& configured = change.after.configured;
  if (!configured.has_global) return clear(configured);
  const bool has_wan = !configured.global.wan.empty();
  const Devices both = devices(configured.global);
  const DesiredState wanted = desired_state(change.after, {link_exists(configured), ""});
  if (wanted.ipv6) note_ipv6();
  for (const Direction way : kDirections) both.at(way).setup(wanted.tree(way));
  // Without tariffs a direction may be blocked that was open for them.
  const bool drops = has_wan && (needs_drop_chain(change.before) || needs_drop_chain(change.after));
  clean_rules(both, drops);
  if (wanted.ipv6) run_list(clean_list(Family::ipv6, drops));
  run_list(wanted.firewall);
  run_list(wanted.ip6_firewall);
}

HtbShaper::DeviceChanges HtbShaper::device_changes(const TariffChange& change,
                                                   const TariffSet& removed) {
  const GlobalSettings& g = change.before.configured.global;
  const auto changed = [&](Direction way) {
    const std::int64_t configured = g.direction(way).speed;
    const std::int64_t previous = change.before.direction(way).line.speed;
    const bool remove = configured != kNeverSet || previous != kNeverSet;
    const ResolvedDirection& next = change.after.direction(way);
    return change_of(*device(g, way),
                     {next.line, previous, configured, largest_burst(next.tariffs)},
                     {removed, change.created(way), remove});
  };
  return {changed(Direction::upload), changed(Direction::download)};
}

DeviceChange HtbShaper::change_of(const HtbIntf& intf, const LineChange& line,
                                  const TariffDifference& tariffs) {
  return device_change(intf.side(), line, intf.has_tree(line.next), tariffs,
                       intf.standing_filters());
}

void HtbShaper::update_intf(bool ingress, const GlobalSettings& settings, const TariffSet& added,
                            const TariffSet& removed, const BandwidthSettings& previous,
                            std::int64_t configured, bool remove, std::int64_t /*link_speed*/,
                            std::int64_t burst) {
  const Direction way = direction_of(ingress);
  const ResolvedLine next = as_given(settings, way);
  const std::unique_ptr<HtbIntf> intf = device(settings, way);
  intf->change(change_of(*intf, {next, previous.speed, configured, burst},
                         {removed, as_given(added, way, next.ipv6), remove}));
}

}  // namespace quenby
