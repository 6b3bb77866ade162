#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "model/global_set.h"
#include "model/tariff_set.h"

/// What a configuration comes to once its rates fit each other and the link
/// (model/rate_resolution.h). Classes are made from these values alone; the records that files hold
/// never carry them. Rates in bytes per second, bursts in bytes.
namespace quenby {

/// What a class is given.
struct ClassRates {
  std::int64_t ceiling = 0;
  std::int64_t guarantee = 0;
  /// 0 has it computed from the guarantee.
  std::int64_t burst = 0;

  bool operator==(const ClassRates&) const = default;
};

/// One direction of a tariff that takes part in it.
struct ResolvedTariff {
  unsigned number = 0;
  ClassRates rates;
  /// `kQdiscPfifo`, ...
  std::int32_t qdisc = 0;
  /// In network order.
  std::vector<std::uint32_t> addresses;
  /// None where IPv6 is not shaped.
  std::vector<Ip6Prefix> prefixes{};

  bool operator==(const ResolvedTariff&) const = default;
};

/// One direction of the line.
struct ResolvedLine {
  /// The WAN interface; empty when the IMQ device is shaped instead.
  std::string wan;
  /// 0 where it is closed, `kNeverSet` where neither the line nor a tariff has a speed.
  std::int64_t speed = kNeverSet;
  /// The default tariff, where it has a speed.
  std::optional<ClassRates> default_tariff;
  /// Whether IPv6 is shaped too.
  bool ipv6 = false;

  bool blocked() const { return speed == 0; }
  /// Whether only packets of tariffs pass, on a line without a speed.
  bool default_blocked() const;

  bool operator==(const ResolvedLine&) const = default;
};

struct ResolvedDirection {
  ResolvedLine line;
  std::vector<ResolvedTariff> tariffs;
};

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

struct ResolvedSettings {
  // What it was made from.
  GlobalSet configured;
  TariffSet tariffs;

  RateSummary summary;
  ResolvedDirection upload;
  ResolvedDirection download;

  const ResolvedDirection& direction(Direction way) const {
    return way == Direction::download ? download : upload;
  }
};

/// The burst that a direction's root class has to cover: the largest one that a tariff has. 0 where
/// none has one, as on a blocked line, which cuts all tariffs to 0.
std::int64_t largest_burst(const std::vector<ResolvedTariff>& tariffs);

// Records whose rates a caller has made to fit, as they stand.

ResolvedTariff as_given(const TariffDirSettings& t,
                        const std::vector<std::uint32_t>& addresses = {});
/// The tariffs that take part in a direction, with their prefixes where IPv6 is shaped.
std::vector<ResolvedTariff> as_given(const TariffSet& set, Direction way, bool ipv6 = false);
/// The line without the default tariff, and with it.
ResolvedLine as_given(const GlobalSettings& g, Direction way);
ResolvedLine as_given(const GlobalSet& set, Direction way);

}  // namespace quenby
