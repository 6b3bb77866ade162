#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "config/parse_error.h"

namespace quenby {

/// Why an operation is not begun: nothing has been changed. The text is the message that `_error`
/// prints for it.
class Refused : public std::runtime_error {
 public:
  explicit Refused(const std::string& message, std::optional<ParseError> error = {})
      : std::runtime_error(message), error_(std::move(error)) {}

  /// Where and why, when it was a file's text.
  const std::optional<ParseError>& error() const { return error_; }

 private:
  std::optional<ParseError> error_;
};

}  // namespace quenby
