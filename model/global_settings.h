#pragma once

#include <string>

#include "model/bandwidth_settings.h"

namespace quenby {

/// One direction of the whole line. Its guarantee is its speed.
class GlobalDirSettings : public BandwidthSettings {
 public:
  using BandwidthSettings::BandwidthSettings;
  std::int64_t rateBps() const override { return speed; }
};

/// Settings of the shaped line.
class GlobalSettings : public BandwidthSettingsInterface<GlobalDirSettings> {
 public:
  static std::string name() { return "global"; }

  void clear() override;
  bool operator==(const GlobalSettings& other) const;

  /// Takes "true", "false" or an empty text (false). Any other text is refused.
  bool setEnabled(const std::string& text);
  /// The same for IPv6.
  bool setIpv6(const std::string& text);
  /// Takes any text. Always true.
  bool setWan(const std::string& text);

  /// The WAN interface; empty when the IMQ device is shaped instead.
  std::string wan;
  bool enabled = true;
  /// Whether prefixes count and IPv6 is to be shaped.
  bool ipv6 = false;

  /// Whether IPv6 is shaped: on a WAN interface alone.
  bool shapes_ipv6() const { return ipv6 && !wan.empty(); }
};

}  // namespace quenby
