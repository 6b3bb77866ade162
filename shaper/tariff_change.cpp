#include "shaper/tariff_change.h"

#include <map>

#include "model/rate.h"
#include "model/rate_resolution.h"
#include "model/tariff_config.h"

namespace quenby {
namespace {

bool oversubscribed(const RateSummary& r) {
  return r.down_limit < r.down_sum || r.up_limit < r.up_sum;
}

// Whether neither direction has a tree.
bool unshaped(const GlobalSet& g) {
  return g.global.download.speed == kNeverSet && g.global.upload.speed == kNeverSet;
}

// Whether a direction goes from unshaped to shaped or back.
bool tree_comes_or_goes(const GlobalSet& before, const GlobalSet& after, bool ingress) {
  return (before.global.direction(ingress).speed == kNeverSet) !=
         (after.global.direction(ingress).speed == kNeverSet);
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

}  // namespace

TariffChange plan_change(const GlobalSet& g, const TariffSet& current, const TariffSet& removed,
                         const TariffSet& added, std::int64_t link_speed) {
  TariffChange change{g, g, current, {}, {}, {}, false};
  TariffSet running = current;
  const RateSummary now = resolve_tariff_rates(g, running, link_speed);
  resolve_global_rates(change.before, running, now);

  change.tariffs.remove(removed);
  const Owners gone = owners_of(removed);
  change.kept = corrections(gone, Owners(), owners_of(change.tariffs));
  change.tariffs.TariffConfigBase::update(added, false);
  TariffSet resolved = change.tariffs;
  const RateSummary then = resolve_tariff_rates(g, resolved, link_speed);
  resolve_global_rates(change.after, resolved, then);
  change.created = pick(added, resolved);

  const Owners come = owners_of(added);
  change.settled = corrections(come, come, owners_of(change.tariffs));
  change.rebuild =
      oversubscribed(now) || oversubscribed(then) || current.empty() || unshaped(change.before) ||
      tree_comes_or_goes(change.before, change.after, false) ||
      tree_comes_or_goes(change.before, change.after, true) || blocked_imq(g) ||
      (g.global.wan.empty() && (shared(current, gone, come) || shared(change.tariffs, gone, come)));
  return change;
}

FilterUpdate filter_update(bool any_added, bool any_removed, std::int64_t configured,
                           std::int64_t previous, std::int64_t next, std::int64_t link_speed) {
  if (configured < previous) return {any_removed && configured >= next, false};
  if (any_added && configured < next) return {true, configured < link_speed};
  return {false, false};
}

}  // namespace quenby
