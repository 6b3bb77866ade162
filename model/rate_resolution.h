#pragma once

#include <cstdint>

#include "model/global_set.h"
#include "model/tariff_set.h"

/// Reconciling the configured rates with each other and with the link, on copies of the
/// configuration. Tariffs without addresses play no part. All rates in bytes per second.
namespace quenby {

/// What the guarantees add up to and what there is to share.
struct RateSummary {
  /// Guaranteed rates of the default tariff and of the tariffs, summed modulo 2^64.
  std::int64_t down_sum = 0;
  std::int64_t up_sum = 0;
  /// The link speed, or the global speed of the direction when that is lower.
  std::int64_t down_limit = 0;
  std::int64_t up_limit = 0;
  std::int64_t link_speed = 0;

  bool operator==(const RateSummary&) const = default;

  /// Whether the guarantees of a direction come to more than there is. Each change of a tariff then
  /// changes the classes of all.
  bool oversubscribed() const;
};

/// A configuration whose rates fit each other and the link: what classes are made from, and never
/// what a file keeps.
struct ResolvedSettings {
  /// The line and the default tariff as configured.
  GlobalSet configured;
  /// The same with rates that fit.
  GlobalSet line;
  TariffSet tariffs;
  /// From before the rates were changed.
  RateSummary summary;

  /// The burst in bytes that a direction's root class has to cover: the largest one that a tariff
  /// has. 0 where none has one, as on a blocked line, which cuts all tariffs to 0.
  std::int64_t root_burst(Direction way) const;
};

/// All steps in their order.
ResolvedSettings resolve(GlobalSet g, TariffSet t, std::int64_t link_speed);

/// Sums up a configuration; changes nothing.
RateSummary summarize_rates(const GlobalSet& g, const TariffSet& t, std::int64_t link_speed);

/// Cuts every tariff's ceiling to the limit and, where the guarantees oversubscribe it, scales them
/// down. Returns the summary from before the changes.
RateSummary resolve_tariff_rates(const GlobalSet& g, TariffSet& t, std::int64_t link_speed);

/// Takes the default tariff's guarantee away where it no longer fits, and raises the global speed
/// to cover the tariffs. `t` and `r` are what `resolve_tariff_rates` left and returned.
void resolve_global_rates(GlobalSet& g, const TariffSet& t, const RateSummary& r);

/// The largest burst in bytes that a tariff asks for in this direction; 0 for none.
std::int64_t largest_burst(Direction way, const TariffSet& t);

}  // namespace quenby
