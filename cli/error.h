#pragma once

#include <exception>
#include <string>

namespace quenby {

/// Reports an expected failure and ends the process: writes "Error: ", `msg` and a newline to
/// standard error, flushes it and exits with status 1. Nothing is rolled back.
[[noreturn]] void _error(const std::string& msg);

/// As above, with a colon and the text of `e` after the message (no blank after the colon).
[[noreturn]] void _error(const std::string& msg, const std::exception& e);

}  // namespace quenby
