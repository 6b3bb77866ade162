#include "shaper/tariff_change.h"

#include <map>
#include <set>
#include <string>

#include "model/rate.h"
#include "model/tariff_config.h"
#include "tc/rate_resolution.h"

namespace quenby {
namespace {

bool oversubscribed(const RateSummary& r) {
  return r.down_limit < r.down_sum || r.up_limit < r.up_sum;
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

std::set<std::uint32_t> addresses_of(const TariffSet& a, const TariffSet& b) {
  std::set<std::uint32_t> addresses;
  for (const TariffSet* const set : {&a, &b}) {
    for (const TariffSettings& tariff : set->tariffs())
      addresses.insert(tariff.addresses.begin(), tariff.addresses.end());
  }
  return addresses;
}

// Whether two tariffs of `set` have one of `addresses`. Which of them it belongs to depends on the
// order in which everything was made.
bool shared(const TariffSet& set, const std::set<std::uint32_t>& addresses) {
  std::map<std::uint32_t, const TariffSettings*> owners;
  for (const TariffSettings& tariff : set.tariffs()) {
    for (const std::uint32_t address : tariff.addresses) {
      if (addresses.count(address) == 0) continue;
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
  TariffChange change{g, g, current, {}, false};
  TariffSet running = current;
  const RateSummary now = resolve_tariff_rates(g, running, link_speed);
  resolve_global_rates(change.before, running, now);

  change.tariffs.remove(removed);
  change.tariffs.TariffConfigBase::update(added, false);
  TariffSet resolved = change.tariffs;
  const RateSummary then = resolve_tariff_rates(g, resolved, link_speed);
  resolve_global_rates(change.after, resolved, then);
  change.created = pick(added, resolved);

  const bool no_limits = g.global.download.speed == kNeverSet && g.global.upload.speed == kNeverSet;
  const std::set<std::uint32_t> addresses = addresses_of(removed, added);
  change.rebuild = oversubscribed(now) || oversubscribed(then) || no_limits || current.empty() ||
                   tree_comes_or_goes(change.before, change.after, false) ||
                   tree_comes_or_goes(change.before, change.after, true) || blocked_imq(g) ||
                   shared(current, addresses) || shared(change.tariffs, addresses);
  return change;
}

FilterUpdate filter_update(bool any_added, bool any_removed, std::int64_t configured,
                           std::int64_t previous, std::int64_t next, std::int64_t link_speed) {
  if (configured < previous) return {any_removed && configured >= next, false};
  if (any_added && configured < next) return {true, configured < link_speed};
  return {false, false};
}

}  // namespace quenby
