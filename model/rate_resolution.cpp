#include "model/rate_resolution.h"

#include <algorithm>
#include <cmath>
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
  if (g.has_default_tariff(way)) result.sum = g.defaults.direction(way).ceiling;
  for (const TariffSettings& tariff : t.tariffs()) {
    if (tariff.takes_part(way))
      result.sum = wrapping_add(result.sum, tariff.direction(way).rateBps());
  }
  const std::int64_t speed = g.global.direction(way).speed;
  if (speed != kNeverSet) result.limit = std::min(speed, link_speed);
  return result;
}

// The factor that gives the direction its part of a limit that the guarantees oversubscribe.
double scaled_aggregation(const TariffDirSettings& direction, const Share& s) {
  const auto limit = static_cast<double>(s.limit);
  const double guarantee =
      static_cast<double>(direction.rateBps()) * limit / static_cast<double>(s.sum);
  const double factor = static_cast<double>(std::min(s.limit, direction.speed)) / guarantee;
  return factor > 0.0 ? factor : direction.aggregation;
}

void resolve(TariffDirSettings& direction, const Share& s) {
  if (direction.speed == kEmptyValue) {
    direction.aggregation = std::numeric_limits<double>::max();
    direction.speed = s.limit;
    return;
  }
  if (s.limit < s.sum) direction.aggregation = scaled_aggregation(direction, s);
  direction.speed = std::min(direction.speed, s.limit);
}

// What the tariffs and the default tariff of one direction need.
struct Need {
  std::int64_t sum = 0;
  std::int64_t ceiling = 0;
};

Need resolve_default(DefaultDirSettings& direction, const Share& s) {
  if (direction.speed > s.limit) {
    direction.speed = s.limit;
    direction.ceiling = 0;
    return {0, s.limit};
  }
  if (s.limit < s.sum) {
    direction.ceiling = 0;
    return {0, direction.speed};
  }
  return {direction.speed, direction.speed};
}

void resolve_global(GlobalSet& g, const TariffSet& t, const Share& s, Direction way) {
  Need need;
  if (g.has_default_tariff(way)) need = resolve_default(g.defaults.direction(way), s);
  for (const TariffSettings& tariff : t.tariffs()) {
    if (!tariff.takes_part(way)) continue;
    const TariffDirSettings& direction = tariff.direction(way);
    need.sum = wrapping_add(need.sum, direction.rateBps());
    need.ceiling = std::max(need.ceiling, direction.speed);
  }
  GlobalDirSettings& line = g.global.direction(way);
  if (line.speed == 0) return;
  const std::int64_t covering = std::max(need.sum, need.ceiling);
  if (covering != 0) line.speed = std::max(line.speed, covering);
}

}  // namespace

RateSummary summarize_rates(const GlobalSet& g, const TariffSet& t, std::int64_t link_speed) {
  const Share down = summarize(g, t, link_speed, Direction::download);
  const Share up = summarize(g, t, link_speed, Direction::upload);
  return {down.sum, up.sum, down.limit, up.limit, link_speed};
}

RateSummary resolve_tariff_rates(const GlobalSet& g, TariffSet& t, std::int64_t link_speed) {
  const RateSummary r = summarize_rates(g, t, link_speed);
  for (TariffSettings& tariff : t.tariffs()) {
    for (const Direction way : kDirections) {
      if (tariff.takes_part(way)) resolve(tariff.direction(way), share(r, way));
    }
  }
  return r;
}

void resolve_global_rates(GlobalSet& g, const TariffSet& t, const RateSummary& r) {
  for (const Direction way : kDirections) resolve_global(g, t, share(r, way), way);
}

std::int64_t largest_burst(Direction way, const TariffSet& t) {
  std::int64_t largest = 0;
  for (const TariffSettings& tariff : t.tariffs()) {
    if (tariff.takes_part(way))
      largest = std::max<std::int64_t>(largest, tariff.direction(way).burstSize());
  }
  return largest;
}

std::int64_t ResolvedSettings::root_burst(Direction way) const {
  return largest_burst(way, tariffs);
}

bool RateSummary::oversubscribed() const { return down_limit < down_sum || up_limit < up_sum; }

ResolvedSettings resolve(GlobalSet g, TariffSet t, std::int64_t link_speed) {
  ResolvedSettings settings{g, std::move(g), std::move(t), {}};
  settings.summary = resolve_tariff_rates(settings.configured, settings.tariffs, link_speed);
  resolve_global_rates(settings.line, settings.tariffs, settings.summary);
  return settings;
}

}  // namespace quenby
