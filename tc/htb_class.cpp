#include "tc/htb_class.h"

#include <algorithm>
#include <limits>

#include "model/number.h"

namespace quenby {
namespace {

// HTB refuses a rate of 0; 8 bytes per second is as good as none.
constexpr std::uint32_t kLeast = 8;

// The kernel counts a burst as the time that it takes: 32 bits of ticks of 64 ns.
constexpr unsigned kTickBits = 32;
constexpr std::uint64_t kTicksPerSecond = 15'625'000;
// libnl reads a burst as a signed number.
constexpr std::uint64_t kLargestBurst = std::numeric_limits<std::int32_t>::max();

// What the kernel's own choice divides a rate by when the root qdisc does not say.
constexpr std::uint32_t kRateToQuantum = 10;
constexpr std::uint32_t kLeastQuantum = 1000;
constexpr std::uint32_t kLargestQuantum = 200'000;

int current_hz = 1'000'000'000;

bool is_tiny(std::int64_t rate) { return rate <= kLeast || low32(rate) <= kLeast; }

// `burst`, or less where libnl or the kernel would take another one for it: they wrap.
std::uint32_t fitting_burst(std::uint32_t burst, std::uint32_t rate) {
  const std::uint64_t longest = (std::uint64_t{rate} << kTickBits) / kTicksPerSecond;
  return static_cast<std::uint32_t>(std::min({std::uint64_t{burst}, longest, kLargestBurst}));
}

std::uint32_t computed_burst(std::uint32_t rate, int hz) {
  return static_cast<std::uint32_t>(class_burst(rate, hz));
}

}  // namespace

int psched_hz() { return current_hz; }

void set_psched_hz(int hz) { current_hz = hz; }

std::int32_t class_burst(double rate, int hz) {
  const std::int32_t tick = to_int32_saturated(rate / static_cast<double>(hz) + 1600.0);
  const std::int32_t quarter_second = to_int32_saturated(rate / 25.0 * 6.0);
  return std::max(tick, quarter_second);
}

HtbClass htb_class(unsigned cid, unsigned parent, const ClassRates& rates, int hz) {
  HtbClass values;
  values.handle = class_handle(cid);
  values.parent = class_handle(parent);
  if (is_tiny(rates.ceiling)) {
    values.ceil = values.cburst = kLeast;
  } else {
    values.ceil = low32(rates.ceiling);
    values.cburst = fitting_burst(computed_burst(values.ceil, hz), values.ceil);
  }
  if (is_tiny(rates.guarantee)) {
    values.rate = values.burst = kLeast;
  } else {
    values.rate = low32(rates.guarantee);
    const std::uint32_t wanted =
        rates.burst != 0 ? low32(rates.burst) : computed_burst(values.rate, hz);
    values.burst = fitting_burst(wanted, values.rate);
  }
  values.quantum = std::clamp(values.rate / kRateToQuantum, kLeastQuantum, kLargestQuantum);
  return values;
}

HtbClass root_class(HandleScheme scheme, std::int64_t speed, std::int64_t largest_burst) {
  const std::int64_t own = class_burst(static_cast<double>(speed), psched_hz());
  const std::int64_t burst = own < largest_burst ? largest_burst : 0;
  return htb_class(class_minor(scheme, kRootClass), 0, {speed, speed, burst});
}

}  // namespace quenby
