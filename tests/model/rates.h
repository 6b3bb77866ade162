#pragma once

#include <gtest/gtest.h>
#include <string>

#include "model/rate_resolution.h"
#include "tests/support/tariffs.h"

namespace quenby::test {

/// A tariff with one address and these values in one direction. The other one's speed is never set.
inline TariffSettings in_direction(Direction way, const std::string& name, std::int64_t speed,
                                   double factor = 1.0) {
  TariffSettings t = tariff(name);
  t.addCIDR("10.0.0.1");
  t.direction(way).speed = speed;
  t.direction(way).aggregation = factor;
  return t;
}

inline TariffSettings downloads(const std::string& name, std::int64_t speed, double factor = 1.0) {
  return in_direction(Direction::download, name, speed, factor);
}

inline TariffSettings uploads(const std::string& name, std::int64_t speed) {
  return in_direction(Direction::upload, name, speed);
}

/// The tariff with a download burst of `size` bytes.
inline TariffSettings with_burst(TariffSettings t, std::int64_t size) {
  t.download.burst_size = size;
  return t;
}

/// Global speeds, with no default section read.
inline GlobalSet line(std::int64_t download, std::int64_t upload = -2) {
  return line("", download, upload);
}

/// A default section with this download speed was read as well.
inline GlobalSet with_default(GlobalSet set, std::int64_t speed) {
  set.has_default = true;
  set.defaults.download.speed = speed;
  set.defaults.download.ceiling = speed;
  return set;
}

/// Gives records their resolved rates, which are those of the resolved values.
inline RateSummary resolve_records(GlobalSet& set, TariffSet& tariffs, std::int64_t link_speed) {
  const ResolvedSettings values = resolve(set, tariffs, link_speed);
  const RateSummary summary = resolve_tariff_rates(set, tariffs, link_speed);
  resolve_global_rates(set, tariffs, summary);
  EXPECT_EQ(values.summary, summary);
  for (const Direction way : kDirections) {
    EXPECT_EQ(values.direction(way).line, as_given(set, way));
    EXPECT_EQ(values.direction(way).tariffs, as_given(tariffs, way));
  }
  return summary;
}

}  // namespace quenby::test
