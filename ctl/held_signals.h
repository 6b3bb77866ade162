#pragma once

#include <string>

namespace quenby {

/// From here to its end this process is not ended by keys, by SIGTERM, or by the loss of its
/// terminal or of whoever reads its output.
void hold_signals();

/// The signal that would have ended it since; empty when there was none. The loss of a terminal or
/// a reader is no reason to end.
std::string held_signal();

}  // namespace quenby
