#include "model/stored_form.h"

#include <algorithm>
#include <string>

#include "model/number.h"
#include "model/rate.h"

namespace quenby {
namespace {

// Replaces `value` by what is read back for it until that changes nothing. Once is enough for any
// real number; beyond 2^56 bit/s doubles have gaps, and what is written can come back as one less.
template <typename ReadBack>
void settle(std::int64_t& value, const ReadBack& read_back) {
  std::int64_t before = 0;
  do {
    before = value;
    read_back();
  } while (value != before);
}

void round_speed(BandwidthSettings& direction) {
  if (direction.speed == kNeverSet) return;
  settle(direction.speed,
         [&direction] { direction.setSpeed(std::to_string(direction.speedKbps())); });
}

void round_burst_rate(std::int64_t& rate) {
  settle(rate, [&rate] { _set_rate(std::to_string(rate / kBitsPerKbit), rate); });
}

void round_default(DefaultDirSettings& direction) {
  round_speed(direction);
  if (direction.speed != kNeverSet) direction.ceiling = direction.speed;
}

void round_direction(TariffDirSettings& direction) {
  if (direction.speed == kNeverSet) direction.speed = 0;
  round_speed(direction);
  round_burst_rate(direction.burst_rate);
  direction.burst_size = low32_signed(direction.burst_size);
}

// The text is all that is stored; one that changes no factor is read back as a factor of 1.
void round_aggregation(TariffSettings& tariff) {
  tariff.download.aggregation = 1.0;
  tariff.upload.aggregation = 1.0;
  tariff.setAggregation(std::string(tariff.aggregation_text));
}

}  // namespace

void round_to_stored(GlobalSet& set) {
  for (const Direction way : kDirections) {
    round_speed(set.global.direction(way));
    round_default(set.defaults.direction(way));
  }
}

void round_to_stored(TariffSet& set) {
  for (TariffSettings& tariff : set.tariffs()) {
    round_aggregation(tariff);
    round_direction(tariff.download);
    round_direction(tariff.upload);
  }
}

bool can_be_stored(const TariffSet& set) { return find_unstorable(set) == nullptr; }

const TariffSettings* find_unstorable(const TariffSet& set) {
  const auto& list = set.tariffs();
  const auto found = std::find_if(list.begin(), list.end(), [](const TariffSettings& tariff) {
    return low32_signed(tariff.download.burst_size) < 0 ||
           low32_signed(tariff.upload.burst_size) < 0;
  });
  return found != list.end() ? &*found : nullptr;
}

}  // namespace quenby
