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

  /// Looks at all classes again, and at the files: activities are those since a class was last
  /// read. The drops of leaves are listed so often that it takes half a per cent of a processor,
  /// and their rates are of the time in between; or each time, with `drops`. Throws when files or
  /// kernel fail; then what was read before stays.
  void look_at_all(bool drops);

  /// Looks at a few classes again, by their places in the list, with what the last look at all told
  /// of files and leaves. Throws when the kernel fails; then what was read before stays.
  void look_at(const std::vector<std::size_t>& places);

  const Shaping& shaping() const { return shaping_; }
  /// In the order of the classes.
  const std::vector<Activity>& activities() const { return activities_; }
  /// The seconds between the last two looks at all; 0 after the first.
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
  /// The same with the drops of leaves, which took so many seconds of a processor.
  struct DropLook {
    Look look;
    double used = 0;
  };

  static Stamp stamp_of(const std::string& path);
  static Surroundings surroundings(const Shaping& shaping);
  static DropLook with_drops(const CounterReader& reader, Look look);
  void load();
  void take_over(DropLook drops);
  void take_over(std::size_t place, const std::optional<ClassCounters>& counters,
                 Clock::time_point at);

  Shaping shaping_;
  Surroundings loaded_;
  std::unique_ptr<CounterReader> reader_;
  /// What each class has told last, and when.
  Counters counters_;
  std::vector<Clock::time_point> times_;
  /// The last look at all.
  Clock::time_point looked_;
  /// The last look at drops, what it told and when the next one is due.
  Look last_drops_;
  std::vector<Activity> drops_;
  Clock::time_point drops_due_;
  std::vector<Activity> activities_;
  double seconds_ = 0;
};

}  // namespace quenby
