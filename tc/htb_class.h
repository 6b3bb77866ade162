#pragma once

#include <compare>
#include <cstdint>

#include "model/resolved_settings.h"
#include "tc/handles.h"

namespace quenby {

/// An HTB class as the kernel receives it. Rates in bytes per second, bursts in bytes; the quantum
/// is the bytes that a class may send in its turn while it borrows.
struct HtbClass {
  std::uint32_t handle = 0;
  std::uint32_t parent = 0;
  std::uint32_t rate = 0;
  std::uint32_t ceil = 0;
  std::uint32_t burst = 0;
  std::uint32_t cburst = 0;
  std::uint32_t quantum = 0;

  // The linter takes the 0 in what the compiler makes of it for a pointer.
  auto operator<=>(const HtbClass&) const = default;  // NOLINT(modernize-use-nullptr)
};

/// The burst in bytes for `rate` bytes per second: 240 ms of traffic, and no less than one clock
/// tick's worth plus 1600 bytes. Saturates at 2147483647.
std::int32_t class_burst(double rate, int hz);

/// Ticks per second of the kernel's packet scheduler clock, which the smallest burst of a class is
/// computed from. The shaper reads it once when it starts; 1,000,000,000 on today's kernels.
int psched_hz();
void set_psched_hz(int hz);

/// The values of one class. `cid` and `parent` are class minors (0 is the root qdisc); 32 bits of
/// each rate reach the kernel. A ceiling or guarantee below 9 becomes 8 with a burst of 8. Bursts
/// are cut to 274.877906944 s at their rate and to 31 bits, which is all that the kernel and libnl
/// can hold. The quantum is the one that the kernel would choose, which logs its choice where a
/// tenth of the rate does not do.
HtbClass htb_class(unsigned cid, unsigned parent, const ClassRates& rates, int hz = psched_hz());

/// The root class of a line of this speed, whose burst also covers `largest_burst` bytes.
HtbClass root_class(HandleScheme scheme, std::int64_t speed, std::int64_t largest_burst);

}  // namespace quenby
