#include "model/stored_form.h"

#include <algorithm>

#include "model/number.h"

namespace quenby {
namespace {

constexpr std::int64_t kBytesPerKbit = 125;
constexpr std::int64_t kBitsPerKbit = 1000;

// The speed that is read back for what `speedKbps` writes.
void round_speed(BandwidthSettings& direction) {
  if (direction.speed >= 0) direction.speed = direction.speedKbps() * kBytesPerKbit;
}

void round_default(DefaultDirSettings& direction) {
  round_speed(direction);
  if (direction.speed != kNeverSet) direction.ceiling = direction.speed;
}

void round_tariff(TariffDirSettings& direction) {
  if (direction.speed == kNeverSet) direction.speed = 0;
  round_speed(direction);
  direction.burst_rate = direction.burst_rate / kBitsPerKbit * kBitsPerKbit;
  direction.burst_size = low32_signed(direction.burst_size);
}

}  // namespace

void round_to_stored(GlobalSet& set) {
  for (const bool ingress : {true, false}) {
    round_speed(set.global.direction(ingress));
    round_default(set.defaults.direction(ingress));
  }
}

void round_to_stored(TariffSet& set) {
  for (TariffSettings& tariff : set.tariffs()) {
    round_tariff(tariff.download);
    round_tariff(tariff.upload);
  }
}

bool can_be_stored(const TariffSet& set) {
  return std::all_of(set.tariffs().begin(), set.tariffs().end(), [](const TariffSettings& tariff) {
    return low32_signed(tariff.download.burst_size) >= 0 &&
           low32_signed(tariff.upload.burst_size) >= 0;
  });
}

}  // namespace quenby
