#pragma once

namespace quenby {

/// Ticks per second of the kernel's packet scheduler clock, which the smallest burst of a class is
/// computed from. The shaper reads it once when it starts; 1,000,000,000 on today's kernels.
int psched_hz();
void set_psched_hz(int hz);

}  // namespace quenby
