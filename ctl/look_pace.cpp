#include "ctl/look_pace.h"

#include <cmath>

namespace quenby {
namespace {

constexpr double kShareOfAll = 0.03;
constexpr double kShareOfShown = 0.01;

}  // namespace

LookPace::LookPace(double interval)
    : wanted_(interval), interval_(interval), interval_of_all_(interval) {}

double LookPace::needed(double elapsed, double used, double share) const {
  const double seconds = elapsed + used / share;
  return seconds <= wanted_ ? wanted_ : std::ceil(seconds * 10) / 10;
}

void LookPace::note(bool at_all, Clock::time_point begin, double elapsed, double used) {
  if (!at_all) {
    interval_ = needed(elapsed, used, kShareOfShown);
    return;
  }
  interval_of_all_ = needed(elapsed, used, kShareOfAll);
  if (interval_of_all_ <= interval_) {
    interval_ = interval_of_all_;
  } else {
    interval_of_all_ = std::ceil(interval_of_all_ / interval_) * interval_;
  }
  // It is the look that is nearest, as looks do not begin to the millisecond.
  const std::chrono::duration<double> pause(interval_of_all_ - interval_ / 2);
  all_due_ = begin + std::chrono::duration_cast<Clock::duration>(pause);
}

}  // namespace quenby
