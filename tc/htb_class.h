#pragma once

#include <cstdint>

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

}  // namespace quenby
