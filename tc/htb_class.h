#pragma once

#include <cstdint>

#include "model/tariff_dir_settings.h"
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

  bool operator==(const HtbClass&) const = default;
};

/// The burst in bytes for `rate` bytes per second: 240 ms of traffic, and no less than one clock
/// tick's worth plus 1600 bytes. Saturates at 2147483647.
std::int32_t class_burst(double rate, int hz);

/// The values of one class. `cid` and `parent` are class minors (0 is the root qdisc), `ceil` and
/// `rate` bytes per second of which 32 bits reach the kernel, `burst` bytes, 0 to have it computed.
/// A ceiling or rate below 9 becomes 8 with a burst of 8. Bursts are cut to 274.877906944 s at
/// their rate and to 31 bits, which is all that the kernel and libnl can hold. The quantum is the
/// one that the kernel would choose, which logs its choice where a tenth of the rate does not do.
HtbClass htb_class(unsigned cid, unsigned parent, std::int64_t ceil, std::int64_t rate,
                   std::int64_t burst, int hz);

/// Ticks per second of the kernel's packet scheduler clock, which the smallest burst of a class is
/// computed from. The shaper reads it once when it starts; 1,000,000,000 on today's kernels.
int psched_hz();
void set_psched_hz(int hz);

// The classes of a direction, by that clock. Rates and speeds as the settings have them.

/// The root class of a line, whose burst also covers `largest_burst` bytes.
HtbClass root_class(HandleScheme scheme, const BandwidthSettings& line, std::int64_t largest_burst);
/// The default or default tariff's class with a guarantee of `rate`.
HtbClass default_class(HandleScheme scheme, unsigned number, std::int64_t ceil, std::int64_t rate);
/// One direction's class of a tariff.
HtbClass tariff_class(HandleScheme scheme, const TariffDirSettings& t);

}  // namespace quenby
