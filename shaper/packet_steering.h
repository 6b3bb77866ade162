#pragma once

#include <string>

namespace quenby {

/// The shell command that spreads the receive work of `wan` over the processors that its port is
/// wired to. Empty when there is nothing to do: on any board but "KX-6-TR", and for ports without a
/// mask of their own. `board` is the hardware tool's output, untrimmed.
std::string steering_command(const std::string& board, const std::string& wan);

/// The processors, in hexadecimal without leading zeros, that a list of `steering_command` gives
/// the receive work to, and those that have it now. Empty for an empty list, or when nothing can be
/// read.
std::string steered_processors(const std::string& command);
std::string standing_processors(const std::string& wan);

/// The shell command that takes the steering back. Empty unless the hardware tool printed exactly
/// the text that stands for "no board in use".
std::string steering_reset_command(const std::string& board, const std::string& wan);

}  // namespace quenby
