#pragma once

#include <cmath>

/// How often the live screen looks.
namespace quenby {

/// Looking takes no more than 4 % of a processor, however many classes there are: the router has
/// other work.
inline constexpr double kLookShare = 25;

/// What lies between the beginnings of a look and of the next one, which are to be `interval`
/// apart, where the look lasted `elapsed` and `used` so much of a processor. All in seconds; more
/// than the interval comes in whole tenths, to be shown.
inline double seconds_to_next_look(double interval, double elapsed, double used) {
  const double needed = elapsed + used * kLookShare;
  return needed <= interval ? interval : std::ceil(needed * 10) / 10;
}

}  // namespace quenby
