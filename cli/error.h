#pragma once

#include <exception>
#include <string>

namespace quenby {

/// Reports an expected failure and ends the process: writes "Error: ", `msg` and a newline to
/// standard error, flushes it and exits with status 1. Nothing is rolled back.
[[noreturn]] void _error(const std::string& msg);

/// As above, with a colon and the text of `e` after the message (no blank after the colon).
[[noreturn]] void _error(const std::string& msg, const std::exception& e);

/// Ends the process with status 1 and without a message, because what failed has spoken for itself.
/// `reason` is for a failure handler.
[[noreturn]] void fail_silently(const std::string& reason);

/// What happens instead of the end of the process, in a program that goes on after a failure: it is
/// called with the message, without "Error: ", and has to throw.
using FailureHandler = void (*)(const std::string& message);
void set_failure_handler(FailureHandler handler);

}  // namespace quenby
