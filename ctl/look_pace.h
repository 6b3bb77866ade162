#pragma once

#include <chrono>

namespace quenby {

/// How often the live screen looks at all classes, or at those that it shows alone: the router has
/// other work. Looks at all take no more than 3 % of a processor, however many classes there are;
/// where they come more seldom than they should, looks at what is shown take 1 % in between.
class LookPace {
 public:
  using Clock = std::chrono::steady_clock;

  /// Looks that take little are `interval` seconds apart.
  explicit LookPace(double interval);

  /// Whether a look that begins now is to be at all classes.
  bool is_at_all(Clock::time_point now) const { return now >= all_due_; }
  /// Takes note of a look that lasted `elapsed` seconds and used so many of a processor.
  void note(bool at_all, Clock::time_point begin, double elapsed, double used);

  /// What lies between the beginnings of looks, and of looks at all, in seconds. More than was
  /// asked for comes in whole tenths, and the second in multiples of the first.
  double interval() const { return interval_; }
  double interval_of_all() const { return interval_of_all_; }

 private:
  double needed(double elapsed, double used, double share) const;

  double wanted_;
  double interval_;
  double interval_of_all_;
  Clock::time_point all_due_;
};

}  // namespace quenby
