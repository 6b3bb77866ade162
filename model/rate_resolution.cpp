#include "model/rate_resolution.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "model/number.h"
#include "model/rate.h"

namespace quenby {
namespace {

// One direction of a RateSummary.
struct Share {
  std::int64_t sum;
  std::int64_t limit;
};

Share share(const RateSummary& r, Direction way) {
  return way == Direction::download ? Share{r.down_sum, r.down_limit} : Share{r.up_sum, r.up_limit};
}

Share summarize(const GlobalSet& g, const TariffSet& t, std::int64_t link_speed, Direction way) {
  Share result{0, link_speed};
  if (g.has_default_tariff(way)) result.sum = g.defaults.direction(way).rateBps();
  for (const TariffSettings& tariff : t.tariffs()) {
    if (tariff.takes_part(way, g.global.shapes_ipv6()))
      result.sum = wrapping_add(result.sum, tariff.direction(way).rateBps());
  }
  const std::int64_t speed = g.global.direction(way).speed;
  if (speed != kNeverSet) result.limit = std::min(speed, link_speed);
  return result;
}

// A ceiling, and what it is divided by to give the guarantee.
struct Fit {
  std::int64_t ceiling;
  double divisor;
};

// The divisor that gives the direction its part of a limit that the guarantees oversubscribe.
double scaled_divisor(const TariffDirSettings& direction, const Share& s) {
  const auto limit = static_cast<double>(s.limit);
  const double guarantee =
      static_cast<double>(direction.rateBps()) * limit / static_cast<double>(s.sum);
  const double divisor = static_cast<double>(std::min(s.limit, direction.speed)) / guarantee;
  return divisor > 0.0 ? divisor : direction.aggregation;
}

Fit fit(const TariffDirSettings& direction, const Share& s) {
  if (direction.speed == kEmptyValue) return {s.limit, std::numeric_limits<double>::max()};
  return {std::min(direction.speed, s.limit),
          s.limit < s.sum ? scaled_divisor(direction, s) : direction.aggregation};
}

// The line as it has to be for the default tariff and these tariffs.
ResolvedLine fit_line(const GlobalSet& g, const std::vector<ResolvedTariff>& tariffs,
                      const Share& s, Direction way) {
  ResolvedLine line = as_given(g, way);
  std::int64_t sum = 0;
  std::int64_t highest = 0;
  if (line.default_tariff) {
    ClassRates& def = *line.default_tariff;
    const bool fits = def.ceiling <= s.limit && s.sum <= s.limit;
    if (fits) sum = def.ceiling;
    if (!fits) def.guarantee = 0;
    def.ceiling = highest = std::min(def.ceiling, s.limit);
  }
  for (const ResolvedTariff& tariff : tariffs) {
    sum = wrapping_add(sum, tariff.rates.guarantee);
    highest = std::max(highest, tariff.rates.ceiling);
  }
  const std::int64_t covering = std::max(sum, highest);
  if (!line.blocked() && covering != 0) line.speed = std::max(line.speed, covering);
  return line;
}

ResolvedDirection resolve(const GlobalSet& g, const TariffSet& t, const RateSummary& r,
                          Direction way) {
  ResolvedDirection direction;
  const bool ipv6 = g.global.shapes_ipv6();
  for (const TariffSettings& tariff : t.tariffs()) {
    if (!tariff.takes_part(way, ipv6)) continue;
    direction.tariffs.push_back(resolved_tariff(tariff, way, r));
    if (ipv6) direction.tariffs.back().prefixes = tariff.prefixes;
  }
  direction.line = fit_line(g, direction.tariffs, share(r, way), way);
  return direction;
}

}  // namespace

ResolvedSettings resolve(GlobalSet g, TariffSet t, std::int64_t link_speed) {
  ResolvedSettings settings{std::move(g), std::move(t), {}, {}, {}};
  const GlobalSet& line = settings.configured;
  settings.summary = summarize_rates(line, settings.tariffs, link_speed);
  settings.upload = resolve(line, settings.tariffs, settings.summary, Direction::upload);
  settings.download = resolve(line, settings.tariffs, settings.summary, Direction::download);
  return settings;
}

RateSummary summarize_rates(const GlobalSet& g, const TariffSet& t, std::int64_t link_speed) {
  const Share down = summarize(g, t, link_speed, Direction::download);
  const Share up = summarize(g, t, link_speed, Direction::upload);
  return {down.sum, up.sum, down.limit, up.limit, link_speed};
}

ResolvedTariff resolved_tariff(const TariffSettings& tariff, Direction way, const RateSummary& r) {
  const TariffDirSettings& direction = tariff.direction(way);
  const auto [ceiling, divisor] = fit(direction, share(r, way));
  const ClassRates rates{ceiling, guaranteed_rate(ceiling, divisor), direction.burst_at(ceiling)};
  return {static_cast<unsigned>(direction.id), rates, direction.qdisc, tariff.addresses};
}

RateSummary resolve_tariff_rates(const GlobalSet& g, TariffSet& t, std::int64_t link_speed) {
  const RateSummary r = summarize_rates(g, t, link_speed);
  for (TariffSettings& tariff : t.tariffs()) {
    for (const Direction way : kDirections) {
      if (!tariff.takes_part(way, g.global.shapes_ipv6())) continue;
      TariffDirSettings& direction = tariff.direction(way);
      const auto [ceiling, divisor] = fit(direction, share(r, way));
      direction.speed = ceiling;
      direction.aggregation = divisor;
    }
  }
  return r;
}

void resolve_global_rates(GlobalSet& g, const TariffSet& t, const RateSummary& r) {
  for (const Direction way : kDirections) {
    const ResolvedLine line =
        fit_line(g, as_given(t, way, g.global.shapes_ipv6()), share(r, way), way);
    g.global.direction(way).speed = line.speed;
    if (!line.default_tariff) continue;
    g.defaults.direction(way).speed = line.default_tariff->ceiling;
    g.defaults.direction(way).ceiling = line.default_tariff->guarantee;
  }
}

}  // namespace quenby
