#include "model/resolved_settings.h"

#include <algorithm>

#include "model/rate.h"

namespace quenby {

bool ResolvedLine::default_blocked() const {
  return speed == kNeverSet && default_tariff && default_tariff->ceiling == 0;
}

bool RateSummary::oversubscribed() const { return down_limit < down_sum || up_limit < up_sum; }

std::int64_t largest_burst(const std::vector<ResolvedTariff>& tariffs) {
  std::int64_t largest = 0;
  for (const ResolvedTariff& tariff : tariffs) largest = std::max(largest, tariff.rates.burst);
  return largest;
}

ResolvedTariff as_given(const TariffDirSettings& t, const std::vector<std::uint32_t>& addresses) {
  return {static_cast<unsigned>(t.id), {t.speed, t.rateBps(), t.burstSize()}, t.qdisc, addresses};
}

std::vector<ResolvedTariff> as_given(const TariffSet& set, Direction way, bool ipv6) {
  std::vector<ResolvedTariff> tariffs;
  for (const TariffSettings& tariff : set.tariffs()) {
    if (!tariff.takes_part(way, ipv6)) continue;
    tariffs.push_back(as_given(tariff.direction(way), tariff.addresses));
    if (ipv6) tariffs.back().prefixes = tariff.prefixes;
  }
  return tariffs;
}

ResolvedLine as_given(const GlobalSettings& g, Direction way) {
  return {g.wan, g.direction(way).speed, std::nullopt, g.shapes_ipv6()};
}

ResolvedLine as_given(const GlobalSet& set, Direction way) {
  ResolvedLine line = as_given(set.global, way);
  const DefaultDirSettings& def = set.defaults.direction(way);
  if (set.has_default_tariff(way)) line.default_tariff = ClassRates{def.speed, def.rateBps(), 0};
  return line;
}

}  // namespace quenby
