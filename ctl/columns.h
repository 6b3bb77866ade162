#pragma once

#include <string>
#include <string_view>

/// Text in a terminal's columns, of which a character may take none or two. What is no character of
/// the locale, and what a terminal would obey, is shown as "?".
namespace quenby {

/// Exactly `width` columns: cut, or blanks after it.
std::string left(std::string_view text, std::size_t width);

/// Blanks before a text of one column a character; one that is longer stays whole.
std::string right(const std::string& text, std::size_t width);

/// "[|||   ]", `width` columns: the part of 1 that `share` is.
std::string bar(double share, std::size_t width);

}  // namespace quenby
