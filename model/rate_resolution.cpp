#include "model/rate_resolution.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "model/number.h"
#include "model/rate.h"

namespace quenby {
namespace {

// One direction of a RateSummary.
struct Share {
  std::int64_t sum;
  std::int64_t limit;
};

Share share(const RateSummary& r, bool ingress) {
  return ingress ? Share{r.down_sum, r.down_limit} : Share{r.up_sum, r.up_limit};
}

bool takes_part(const TariffSettings& tariff, bool ingress) {
  return !tariff.addresses.empty() && tariff.direction(ingress).speed != kNeverSet;
}

bool has_default(const GlobalSet& g, bool ingress) {
  return g.has_default && g.defaults.direction(ingress).speed != kNeverSet;
}

Share summarize(const GlobalSet& g, const TariffSet& t, std::int64_t link_speed, bool ingress) {
  Share result{0, link_speed};
  if (has_default(g, ingress)) result.sum = g.defaults.direction(ingress).ceiling;
  for (const TariffSettings& tariff : t.tariffs()) {
    if (takes_part(tariff, ingress))
      result.sum = wrapping_add(result.sum, tariff.direction(ingress).rateBps());
  }
  const std::int64_t speed = g.global.direction(ingress).speed;
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
  std::int32_t burst = 0;
};

Need resolve_default(DefaultDirSettings& direction, const Share& s) {
  if (direction.speed > s.limit) {
    direction.speed = s.limit;
    direction.ceiling = 0;
    return {0, s.limit, 0};
  }
  if (s.limit < s.sum) {
    direction.ceiling = 0;
    return {0, direction.speed, 0};
  }
  return {direction.speed, direction.speed, 0};
}

void resolve_global(GlobalSet& g, const TariffSet& t, const Share& s, bool ingress) {
  Need need;
  if (has_default(g, ingress)) need = resolve_default(g.defaults.direction(ingress), s);
  for (const TariffSettings& tariff : t.tariffs()) {
    if (!takes_part(tariff, ingress)) continue;
    const TariffDirSettings& direction = tariff.direction(ingress);
    need.sum = wrapping_add(need.sum, direction.rateBps());
    need.ceiling = std::max(need.ceiling, direction.speed);
    need.burst = std::max(need.burst, direction.burstSize());
  }
  GlobalDirSettings& line = g.global.direction(ingress);
  if (line.speed == 0) return;
  const std::int64_t covering = std::max(need.sum, need.ceiling);
  if (covering != 0) line.speed = std::max(line.speed, covering);
  if (need.burst != 0) line.burst = need.burst;
}

}  // namespace

RateSummary summarize_rates(const GlobalSet& g, const TariffSet& t, std::int64_t link_speed) {
  const Share down = summarize(g, t, link_speed, true);
  const Share up = summarize(g, t, link_speed, false);
  return {down.sum, up.sum, down.limit, up.limit, link_speed};
}

RateSummary resolve_tariff_rates(const GlobalSet& g, TariffSet& t, std::int64_t link_speed) {
  const RateSummary r = summarize_rates(g, t, link_speed);
  for (TariffSettings& tariff : t.tariffs()) {
    for (const bool ingress : {true, false}) {
      if (takes_part(tariff, ingress)) resolve(tariff.direction(ingress), share(r, ingress));
    }
  }
  return r;
}

void resolve_global_rates(GlobalSet& g, const TariffSet& t, const RateSummary& r) {
  for (const bool ingress : {true, false}) resolve_global(g, t, share(r, ingress), ingress);
}

}  // namespace quenby
