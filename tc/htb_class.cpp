#include "tc/htb_class.h"

#include <algorithm>

#include "model/number.h"
#include "tc/handles.h"

namespace quenby {
namespace {

// HTB refuses a rate of 0; 8 bytes per second is as good as none.
constexpr std::uint32_t kLeast = 8;

bool is_tiny(std::int64_t rate) { return rate <= kLeast || low32(rate) <= kLeast; }

}  // namespace

std::int32_t class_burst(double rate, int hz) {
  const std::int32_t tick = to_int32_saturated(rate / static_cast<double>(hz) + 1600.0);
  const std::int32_t quarter_second = to_int32_saturated(rate / 25.0 * 6.0);
  return std::max(tick, quarter_second);
}

HtbClass htb_class(unsigned cid, unsigned parent, std::int64_t ceil, std::int64_t rate,
                   std::int64_t burst, int hz) {
  HtbClass values;
  values.handle = class_handle(cid);
  values.parent = class_handle(parent);
  if (is_tiny(ceil)) {
    values.ceil = values.cburst = kLeast;
  } else {
    values.ceil = low32(ceil);
    values.cburst = static_cast<std::uint32_t>(class_burst(values.ceil, hz));
  }
  if (is_tiny(rate)) {
    values.rate = values.burst = kLeast;
  } else {
    values.rate = low32(rate);
    values.burst =
        burst != 0 ? low32(burst) : static_cast<std::uint32_t>(class_burst(values.rate, hz));
  }
  return values;
}

}  // namespace quenby
