#pragma once

#include <cstdint>

#include "model/resolved_settings.h"

/// Reconciling the configured rates with each other and with the link. Tariffs without addresses
/// play no part. All rates in bytes per second.
namespace quenby {

/// Makes the rates of a configuration fit.
ResolvedSettings resolve(GlobalSet g, TariffSet t, std::int64_t link_speed);

/// Sums up a configuration.
RateSummary summarize_rates(const GlobalSet& g, const TariffSet& t, std::int64_t link_speed);

/// One direction of a tariff: its ceiling cut to the limit and, where the guarantees oversubscribe
/// it, its guarantee scaled down.
ResolvedTariff resolved_tariff(const TariffSettings& tariff, Direction way, const RateSummary& r);

// The same steps on a caller's copies of the records, for callers that go on with records.

/// Gives every tariff its resolved rates. Returns the summary from before.
RateSummary resolve_tariff_rates(const GlobalSet& g, TariffSet& t, std::int64_t link_speed);

/// Takes the default tariff's guarantee away where it no longer fits, and raises the global speed
/// to cover the tariffs. `t` and `r` are what `resolve_tariff_rates` left and returned.
void resolve_global_rates(GlobalSet& g, const TariffSet& t, const RateSummary& r);

}  // namespace quenby
