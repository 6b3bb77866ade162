#pragma once

#include "ctl/counter_reader.h"

namespace quenby {

/// What a class has done between two readings.
struct Activity {
  double bytes_per_second = 0;
  double packets_per_second = 0;
  double drops_per_second = 0;
  /// Since the class was made, and what waits at the second reading.
  std::uint64_t packets = 0;
  std::uint64_t drops = 0;
  std::uint64_t backlog_bytes = 0;
  /// Whether the kernel has the class.
  bool present = false;
};

/// Compares two readings of the same classes, `seconds` apart. Rates are 0 for a class that was not
/// there before; one whose counters have begun again counts from 0. Needs lists of equal length and
/// more than 0 seconds.
std::vector<Activity> activity_between(const Counters& before, const Counters& after,
                                       double seconds);

}  // namespace quenby
