#include "model/tariff_dir_settings.h"

#include "model/number.h"

namespace quenby {

std::int64_t guaranteed_rate(std::int64_t speed, double aggregation) {
  return to_int64(static_cast<double>(speed) / aggregation);
}

std::int64_t TariffDirSettings::rateBps() const { return guaranteed_rate(speed, aggregation); }

void TariffDirSettings::clear() {
  BandwidthSettings::clear();
  aggregation = 1.0;
  burst_rate = 0;
  burst_size = 0;
  id = 0;
  qdisc = kQdiscNone;
}

bool TariffDirSettings::operator==(const BandwidthSettings& other) const {
  const auto* const same = dynamic_cast<const TariffDirSettings*>(&other);
  return same != nullptr && *this == *same;
}

bool TariffDirSettings::operator==(const TariffDirSettings& other) const {
  return id == other.id && aggregation == other.aggregation && burst_rate == other.burst_rate &&
         burst_size == other.burst_size && qdisc == other.qdisc &&
         BandwidthSettings::operator==(other);
}

bool TariffDirSettings::setID(int number) {
  if (number < kMinTariffId || number > kMaxTariffId) return false;
  id = number;
  return true;
}

int TariffDirSettings::burst_at(std::int64_t at_speed) const {
  if (burst_size == 0 || at_speed == 0) return 0;
  if (burst_rate == 0) return low32_signed(burst_size);
  const auto product = static_cast<double>(wrapping_multiply(at_speed, burst_size));
  return to_int32(product / static_cast<double>(burst_rate));
}

}  // namespace quenby
