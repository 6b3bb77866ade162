#pragma once

#include <cstdint>
#include <string>

#include "model/direction.h"
#include "model/rate.h"

namespace quenby {

/// One direction of a settings record. A plain value; the direction itself is fixed when the record
/// is built.
class BandwidthSettings {
 public:
  explicit BandwidthSettings(bool download) : download_(download) {}
  virtual ~BandwidthSettings() = default;
  BandwidthSettings(const BandwidthSettings&) = default;
  BandwidthSettings& operator=(const BandwidthSettings&) = default;

  /// The guaranteed rate of this direction, in bytes per second.
  virtual std::int64_t rateBps() const = 0;
  /// Puts every field but the direction to its initial value.
  virtual void clear();
  /// True when every field is equal. A kind that adds fields also wants `other` to be of its kind.
  virtual bool operator==(const BandwidthSettings& other) const;

  /// True for the download member of a record, false for the upload member.
  bool download() const { return download_; }

  /// Takes a speed in kbit/s. An empty, negative or non-numeric text is accepted and stores
  /// `kEmptyValue`; false, with the speed unchanged, only when the number is out of range.
  bool setSpeed(const std::string& text);

  /// The speed in whole kbit/s: -1 for an empty value, 0 for one never set.
  std::int64_t speedKbps() const { return kbps_of(speed); }

  /// Bytes per second, `kNeverSet` or `kEmptyValue`. The ceiling of the direction's class.
  std::int64_t speed = kNeverSet;

 protected:
  /// `_set_rate`, converted to bytes per second; -1 stays -1.
  static bool _tobps(const std::string& text, std::int64_t& out);

 private:
  bool download_;
};

/// The two directions of a record, each of kind D.
template <typename D>
class BandwidthSettingsInterface {
 public:
  virtual ~BandwidthSettingsInterface() = default;
  BandwidthSettingsInterface() = default;
  BandwidthSettingsInterface(const BandwidthSettingsInterface&) = default;
  BandwidthSettingsInterface& operator=(const BandwidthSettingsInterface&) = default;
  BandwidthSettingsInterface(BandwidthSettingsInterface&&) noexcept = default;
  BandwidthSettingsInterface& operator=(BandwidthSettingsInterface&&) noexcept = default;

  virtual void clear() {
    download.clear();
    upload.clear();
  }

  /// The member of one direction: download for traffic that arrives from the WAN.
  const D& direction(Direction way) const { return way == Direction::download ? download : upload; }
  D& direction(Direction way) { return way == Direction::download ? download : upload; }

  D download{true};
  D upload{false};
};

}  // namespace quenby
