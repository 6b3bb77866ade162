#include "model/default_settings.h"

namespace quenby {

void DefaultDirSettings::clear() {
  BandwidthSettings::clear();
  ceiling = 0;
}

bool DefaultDirSettings::operator==(const BandwidthSettings& other) const {
  const auto* const same = dynamic_cast<const DefaultDirSettings*>(&other);
  return same != nullptr && *this == *same;
}

bool DefaultDirSettings::operator==(const DefaultDirSettings& other) const {
  return ceiling == other.ceiling && BandwidthSettings::operator==(other);
}

bool DefaultSettings::operator==(const DefaultSettings& other) const {
  return download == other.download && upload == other.upload;
}

}  // namespace quenby
