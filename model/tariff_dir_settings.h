#pragma once

#include <cstdint>

#include "model/bandwidth_settings.h"
#include "model/class_numbers.h"

namespace quenby {

/// Leaf queueing discipline kinds. Any other number means no leaf qdisc.
inline constexpr int kQdiscNone = 0;
inline constexpr int kQdiscPfifo = 1;
inline constexpr int kQdiscSfq = 2;
inline constexpr int kQdiscFqCodel = 3;

/// Bytes per second: a speed divided by an aggregation factor, truncated.
std::int64_t guaranteed_rate(std::int64_t speed, double aggregation);

/// One direction of a tariff.
class TariffDirSettings : public BandwidthSettings {
 public:
  using BandwidthSettings::BandwidthSettings;

  std::int64_t rateBps() const override;
  void clear() override;
  bool operator==(const BandwidthSettings& other) const override;
  bool operator==(const TariffDirSettings& other) const;

  /// Takes a class number; false, with nothing changed, outside `kMinTariffId` to `kMaxTariffId`.
  bool setID(int number);

  /// The burst in bytes to give the kernel; 0 asks the class engine to compute one. With a burst
  /// rate it is speed (bytes/s) times burst size over burst rate (bit/s), the units taken as they
  /// stand.
  int burstSize() const { return burst_at(speed); }
  /// The same at another speed.
  int burst_at(std::int64_t at_speed) const;

  /// Divisor of the guaranteed rate.
  double aggregation = 1.0;
  /// Bits per second.
  std::int64_t burst_rate = 0;
  /// Bytes.
  std::int64_t burst_size = 0;
  /// Class number of the owning tariff; 0 while it has none.
  std::int32_t id = 0;
  std::int32_t qdisc = kQdiscNone;
};

}  // namespace quenby
