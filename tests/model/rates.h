#pragma once

#include <gtest/gtest.h>
#include <string>

#include "model/rate_resolution.h"
#include "tests/support/tariffs.h"

namespace quenby::test {

/// A tariff with one address and the given download. Its upload is never set.
inline TariffSettings downloads(const std::string& name, std::int64_t speed, double factor = 1.0) {
  TariffSettings t = tariff(name);
  t.addCIDR("10.0.0.1");
  t.download.speed = speed;
  t.download.aggregation = factor;
  return t;
}

/// The same for upload.
inline TariffSettings uploads(const std::string& name, std::int64_t speed, double factor = 1.0) {
  TariffSettings t = tariff(name);
  t.addCIDR("10.0.0.1");
  t.upload.speed = speed;
  t.upload.aggregation = factor;
  return t;
}

/// Global speeds, with no default section read.
inline GlobalSet line(std::int64_t download, std::int64_t upload = -2) {
  GlobalSet set;
  set.has_global = true;
  set.global.download.speed = download;
  set.global.upload.speed = upload;
  return set;
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

inline const TariffDirSettings& download_of(const TariffSet& set, std::size_t index) {
  return set.tariffs()[index].download;
}

}  // namespace quenby::test
