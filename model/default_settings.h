#pragma once

#include <string>

#include "model/bandwidth_settings.h"

namespace quenby {

/// One direction of the default tariff.
class DefaultDirSettings : public BandwidthSettings {
 public:
  using BandwidthSettings::BandwidthSettings;
  std::int64_t rateBps() const override { return ceiling; }
  void clear() override;
  bool operator==(const BandwidthSettings& other) const override;
  bool operator==(const DefaultDirSettings& other) const;

  /// The guaranteed rate in bytes per second: where a file sets the speed, the same.
  std::int64_t ceiling = 0;
};

/// Settings of the traffic whose address belongs to no tariff.
class DefaultSettings : public BandwidthSettingsInterface<DefaultDirSettings> {
 public:
  /// The section name in files.
  static std::string name() { return "defaultqosipqueue"; }
  /// The name shown to people.
  static std::string printName() { return "defaultQoSIPQueue"; }

  bool operator==(const DefaultSettings& other) const;
};

}  // namespace quenby
