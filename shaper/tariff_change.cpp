#include "shaper/tariff_change.h"

#include <algorithm>
#include <map>

#include "model/rate.h"
#include "model/tariff_config.h"

namespace quenby {
namespace {

// Whether neither direction has a tree.
bool unshaped(const GlobalSettings& g) {
  return g.download.speed == kNeverSet && g.upload.speed == kNeverSet;
}

// Whether a direction goes from unshaped to shaped or back.
bool tree_comes_or_goes(const GlobalSettings& before, const GlobalSettings& after) {
  return std::any_of(kDirections.begin(), kDirections.end(), [&](Direction way) {
    return (before.direction(way).speed == kNeverSet) != (after.direction(way).speed == kNeverSet);
  });
}

// On the IMQ device a blocked direction has classes like any other, but none are added to it.
bool blocked_imq(const GlobalSet& g) {
  return g.global.wan.empty() && (g.global.download.speed == 0 || g.global.upload.speed == 0);
}

// The number of the last tariff by name that has an address.
using Owners = std::map<std::uint32_t, int>;

Owners owners_of(const TariffSet& set) {
  Owners owners;
  for (const TariffSettings& tariff : set.tariffs()) {
    for (const std::uint32_t address : tariff.addresses) owners[address] = tariff.id;
  }
  return owners;
}

// The entries that lead from `found` to `wanted` at the addresses of `touched`. Addresses that
// nobody wants are passed over.
std::vector<AddressSetEntry> corrections(const Owners& touched, const Owners& found,
                                         const Owners& wanted) {
  std::vector<AddressSetEntry> entries;
  for (const auto& [address, number] : touched) {
    const auto owner = wanted.find(address);
    const auto present = found.find(address);
    if (owner == wanted.end() || (present != found.end() && *present == *owner)) continue;
    entries.push_back(address_set_entry(address, static_cast<std::uint64_t>(owner->second)));
  }
  return entries;
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

// The records that the tariffs of `added` have in `resolved`, found by their class numbers.
TariffSet pick(const TariffSet& added, const TariffSet& resolved) {
  TariffConfig all;
  all.update(resolved, true);
  all = all.orderedByID();
  TariffSet picked;
  for (const TariffSettings& tariff : added.tariffs()) {
    TariffSettings record;
    if (all.get(tariff.id, record)) picked.addTariff(std::move(record));
  }
  return picked;
}

ChangeReason reason_for(const TariffChange& change, const Owners& gone, const Owners& come) {
  const GlobalSet& g = change.before.configured;
  const GlobalSettings& before = change.before.line.global;
  if (change.tariffs.empty()) return ChangeReason::last_tariff;
  if (change.before.tariffs.empty()) return ChangeReason::first_tariff;
  if (change.before.summary.oversubscribed() || change.after.summary.oversubscribed())
    return ChangeReason::oversubscribed;
  if (unshaped(before)) return ChangeReason::unshaped;
  if (tree_comes_or_goes(before, change.after.line.global)) return ChangeReason::tree_comes_or_goes;
  if (blocked_imq(g)) return ChangeReason::blocked_imq;
  if (!g.global.wan.empty()) return ChangeReason::in_place;
  const bool is_shared =
      shared(change.before.tariffs, gone, come) || shared(change.tariffs, gone, come);
  return is_shared ? ChangeReason::shared_address : ChangeReason::in_place;
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

TariffChange plan_change(const GlobalSet& g, const TariffSet& current, const TariffSet& removed,
                         const TariffSet& added, std::int64_t link_speed) {
  TariffChange change;
  change.before = resolve(g, current, link_speed);
  change.tariffs = current;
  change.tariffs.remove(removed);
  const Owners gone = owners_of(removed);
  change.kept = corrections(gone, Owners(), owners_of(change.tariffs));
  change.tariffs.TariffConfigBase::update(added, false);
  change.after = resolve(g, change.tariffs, link_speed);
  change.created = pick(added, change.after.tariffs);

  const Owners come = owners_of(added);
  change.settled = corrections(come, come, owners_of(change.tariffs));
  change.reason = reason_for(change, gone, come);
  return change;
}

}  // namespace quenby
