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

/// Compares two readings of a class, `seconds` apart, of which there must be more than 0. Rates are
/// 0 for a class that was not there before; one whose counters have begun again counts from 0.
Activity activity_between(const std::optional<ClassCounters>& before,
                          const std::optional<ClassCounters>& after, double seconds);

}  // namespace quenby
