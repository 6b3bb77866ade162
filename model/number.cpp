#include "model/number.h"

#include <limits>

namespace quenby {
namespace {

// True when truncating `value` toward zero gives a number that Int can hold. Both bounds are exact
// doubles for 32 and 64 bits: -2^(n-1) itself and 2^(n-1), the first value that is too large. The
// lower bound leaves out values between -2^31 - 1 and -2^31, so it is widened by one for 32 bits;
// for 64 bits the subtraction changes nothing, as no double lies between.
template <typename Int>
bool fits(double value) {
  const double lowest = static_cast<double>(std::numeric_limits<Int>::min());
  if constexpr (sizeof(Int) < sizeof(std::int64_t)) return value > lowest - 1.0 && value < -lowest;
  return value >= lowest && value < -lowest;
}

}  // namespace

std::int64_t to_int64(double value) {
  return fits<std::int64_t>(value) ? static_cast<std::int64_t>(value)
                                   : std::numeric_limits<std::int64_t>::min();
}

std::int32_t to_int32(double value) {
  return fits<std::int32_t>(value) ? static_cast<std::int32_t>(value)
                                   : std::numeric_limits<std::int32_t>::min();
}

std::int32_t to_int32_saturated(double value) {
  if (value > std::numeric_limits<std::int32_t>::max())
    return std::numeric_limits<std::int32_t>::max();
  return to_int32(value);
}

std::int64_t wrapping_add(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

std::int64_t wrapping_multiply(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(b));
}

std::uint32_t low32(std::int64_t value) { return static_cast<std::uint32_t>(value); }

std::int32_t low32_signed(std::int64_t value) { return static_cast<std::int32_t>(low32(value)); }

}  // namespace quenby
