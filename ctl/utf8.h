#pragma once

#include <string>
#include <string_view>

namespace quenby {

/// How many bytes the character at the start of a text has; 0 when they are no UTF-8. Needs a text
/// that is not empty.
std::size_t utf8_length(std::string_view text);

/// The text with U+FFFD for every byte that is no UTF-8.
std::string valid_utf8(std::string_view text);

}  // namespace quenby
