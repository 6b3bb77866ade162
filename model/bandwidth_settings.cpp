#include "model/bandwidth_settings.h"

namespace quenby {

void BandwidthSettings::clear() { speed = kNeverSet; }

bool BandwidthSettings::operator==(const BandwidthSettings& other) const {
  return speed == other.speed && download_ == other.download_;
}

bool BandwidthSettings::setSpeed(const std::string& text) { return _tobps(text, speed); }

bool BandwidthSettings::_tobps(const std::string& text, std::int64_t& out) {
  if (!_set_rate(text, out)) return false;
  if (out != kEmptyValue) out /= kBitsPerByte;
  return true;
}

}  // namespace quenby
