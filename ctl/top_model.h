#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <memory>

#include "ctl/activity.h"

namespace quenby {

/// What the live screen shows, sampled as often as it is asked. Follows the stored files and the
/// coming and going of the WAN interface.
class TopModel {
 public:
  /// Reads files and counters. Throws as `read_shaping`.
  TopModel();

  /// Looks again: activities are those since the last look that succeeded. The drops of leaves are
  /// listed so often that it takes half a per cent of a processor, and their rates are of the time
  /// in between; or each time, with `all`. Throws when files or kernel fail; then what was read
  /// before stays.
  void sample(bool all);

  const Shaping& shaping() const { return shaping_; }
  /// In the order of the classes.
  const std::vector<Activity>& activities() const { return activities_; }
  /// The seconds between the last two looks; 0 after the first.
  double seconds() const { return seconds_; }

 private:
  using Clock = std::chrono::steady_clock;

  /// What tells that a stored file is another one.
  struct Stamp {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    std::int64_t changed = 0;

    bool operator==(const Stamp&) const = default;
  };
  struct Surroundings {
    std::array<Stamp, 2> files;
    bool has_device = false;

    bool operator==(const Surroundings&) const = default;
  };

  /// What was read at a time.
  struct Look {
    Counters counters;
    Clock::time_point at;
  };

  static Stamp stamp_of(const std::string& path);
  static Surroundings surroundings(const Shaping& shaping);
  void load();
  /// Lists the drops of leaves too.
  void look_at_drops(Look& look);
  void take_over_drops(std::vector<Activity>& activities) const;

  Shaping shaping_;
  Surroundings loaded_;
  std::unique_ptr<CounterReader> reader_;
  Look last_;
  /// The last look at drops, what it told and when the next one is due.
  Look last_drops_;
  std::vector<Activity> drops_;
  Clock::time_point drops_due_;
  std::vector<Activity> activities_;
  double seconds_ = 0;
};

}  // namespace quenby
