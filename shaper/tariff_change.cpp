#include "shaper/tariff_change.h"

#include <algorithm>
#include <map>
#include <utility>

#include "model/rate.h"
#include "model/rate_resolution.h"

namespace quenby {
namespace {

// Whether neither direction has a tree.
bool unshaped(const ResolvedSettings& s) {
  return s.download.line.speed == kNeverSet && s.upload.line.speed == kNeverSet;
}

// Whether a direction goes from unshaped to shaped or back.
bool tree_comes_or_goes(const ResolvedSettings& before, const ResolvedSettings& after) {
  return std::any_of(kDirections.begin(), kDirections.end(), [&](Direction way) {
    return (before.direction(way).line.speed == kNeverSet) !=
           (after.direction(way).line.speed == kNeverSet);
  });
}

// On the IMQ device a blocked direction has classes like any other, but none are added to it.
bool blocked_imq(const GlobalSet& g) {
  return g.global.wan.empty() && (g.global.download.speed == 0 || g.global.upload.speed == 0);
}

// The number of the last tariff by name that has an address or a prefix.
template <typename Key>
using OwnersOf = std::map<Key, int>;
using Owners = OwnersOf<std::uint32_t>;

template <typename Key>
using AddressList = std::vector<Key> TariffSettings::*;

template <typename Key>
OwnersOf<Key> owners_of(const TariffSet& set, AddressList<Key> addresses) {
  OwnersOf<Key> owners;
  for (const TariffSettings& tariff : set.tariffs()) {
    for (const Key& address : tariff.*addresses) owners[address] = tariff.id;
  }
  return owners;
}

Owners owners_of(const TariffSet& set) { return owners_of(set, &TariffSettings::addresses); }

// The entries that lead from `found` to `wanted` at the addresses of `touched`. Addresses that
// nobody wants are passed over.
template <typename Key>
std::vector<SetEntry<Key>> corrections(const OwnersOf<Key>& touched, const OwnersOf<Key>& found,
                                       const OwnersOf<Key>& wanted) {
  std::vector<SetEntry<Key>> entries;
  for (const auto& [address, number] : touched) {
    const auto owner = wanted.find(address);
    const auto present = found.find(address);
    if (owner == wanted.end() || (present != found.end() && *present == *owner)) continue;
    entries.push_back(address_set_entry(address, static_cast<std::uint64_t>(owner->second)));
  }
  return entries;
}

template <typename Key>
std::vector<SetEntry<Key>> kept_entries(const TariffSet& removed, const TariffSet& rest,
                                        AddressList<Key> addresses) {
  return corrections(owners_of(removed, addresses), OwnersOf<Key>(), owners_of(rest, addresses));
}

template <typename Key>
std::vector<SetEntry<Key>> settled_entries(const TariffSet& added, const TariffSet& all,
                                           AddressList<Key> addresses) {
  const OwnersOf<Key> come = owners_of(added, addresses);
  return corrections(come, come, owners_of(all, addresses));
}

// Whether two tariffs of `set` have one of the touched addresses.
bool shared(const TariffSet& set, const Owners& removed, const Owners& added) {
  std::map<std::uint32_t, const TariffSettings*> owners;
  for (const TariffSettings& tariff : set.tariffs()) {
    for (const std::uint32_t address : tariff.addresses) {
      if (removed.count(address) == 0 && added.count(address) == 0) continue;
      if (owners.emplace(address, &tariff).first->second != &tariff) return true;
    }
  }
  return false;
}

std::set<unsigned> numbers_of(const TariffSet& set) {
  std::set<unsigned> numbers;
  for (const TariffSettings& tariff : set.tariffs())
    numbers.insert(static_cast<unsigned>(tariff.id));
  return numbers;
}

ChangeReason reason_for(const TariffChange& change) {
  const GlobalSet& g = change.before.configured;
  if (change.after.tariffs.empty()) return ChangeReason::last_tariff;
  if (change.before.tariffs.empty()) return ChangeReason::first_tariff;
  if (change.before.summary.oversubscribed() || change.after.summary.oversubscribed())
    return ChangeReason::oversubscribed;
  if (unshaped(change.before)) return ChangeReason::unshaped;
  if (tree_comes_or_goes(change.before, change.after)) return ChangeReason::tree_comes_or_goes;
  if (blocked_imq(g)) return ChangeReason::blocked_imq;
  const bool is_imq = g.global.wan.empty();
  return is_imq && change.shared ? ChangeReason::shared_address : ChangeReason::in_place;
}

}  // namespace

const char* reason_text(ChangeReason reason) {
  switch (reason) {
    case ChangeReason::in_place:
      return "in place";
    case ChangeReason::last_tariff:
      return "line only: no tariff is left";
    case ChangeReason::first_tariff:
      return "rebuild: there was no tariff";
    case ChangeReason::oversubscribed:
      return "rebuild: the guarantees exceed a limit";
    case ChangeReason::unshaped:
      return "rebuild: neither direction is shaped";
    case ChangeReason::tree_comes_or_goes:
      return "rebuild: a direction comes to be shaped, or no longer is";
    case ChangeReason::blocked_imq:
      return "rebuild: a direction of the IMQ device is blocked";
    case ChangeReason::shared_address:
      return "rebuild: two tariffs share an address on the IMQ device";
  }
  return "";
}

std::vector<ResolvedTariff> TariffChange::created(Direction way) const {
  std::vector<ResolvedTariff> picked;
  for (const ResolvedTariff& tariff : after.direction(way).tariffs) {
    if (added.count(tariff.number) != 0) picked.push_back(tariff);
  }
  return picked;
}

TariffChange plan_change(const GlobalSet& g, const TariffSet& current, const TariffSet& removed,
                         const TariffSet& added, std::int64_t link_speed) {
  TariffChange change;
  change.before = resolve(g, current, link_speed);
  TariffSet tariffs = current;
  tariffs.remove(removed);
  const Owners gone = owners_of(removed);
  const auto addresses = &TariffSettings::addresses;
  const auto prefixes = &TariffSettings::prefixes;
  const bool ipv6 = g.global.shapes_ipv6();
  change.kept = kept_entries(removed, tariffs, addresses);
  if (ipv6) change.kept_prefixes = kept_entries(removed, tariffs, prefixes);
  tariffs.TariffConfigBase::update(added, false);
  const Owners come = owners_of(added);
  change.settled = settled_entries(added, tariffs, addresses);
  if (ipv6) change.settled_prefixes = settled_entries(added, tariffs, prefixes);
  change.after = resolve(g, std::move(tariffs), link_speed);
  change.added = numbers_of(added);
  change.shared =
      shared(change.before.tariffs, gone, come) || shared(change.after.tariffs, gone, come);
  change.reason = reason_for(change);
  return change;
}

}  // namespace quenby
