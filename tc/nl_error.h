#pragma once

#include <string>

/// The one place where a libnl result becomes a message.
namespace quenby {

/// Ends the process with "Error: ", `message` and libnl's text for `code` in parentheses.
[[noreturn]] void nl_fatal(const std::string& message, int code);

/// Ends the process with "failed to " and `what` when `code` is negative.
void check_nl_result(const std::string& what, int code);

}  // namespace quenby
