#include "ctl/utf8.h"

#include <algorithm>

namespace quenby {
namespace {

constexpr const char* kReplacement = "\xef\xbf\xbd";

unsigned byte(std::string_view text, std::size_t at) {
  return static_cast<unsigned char>(text[at]);
}

// By the first byte alone.
std::size_t announced_length(unsigned first) {
  if (first < 0x80) return 1;
  if (first >= 0xc2 && first < 0xe0) return 2;
  if (first >= 0xe0 && first < 0xf0) return 3;
  if (first >= 0xf0 && first < 0xf5) return 4;
  return 0;
}

// Longer than need be, a surrogate, or above U+10FFFF: the second byte tells.
bool is_forbidden(unsigned first, unsigned second) {
  return (first == 0xe0 && second < 0xa0) || (first == 0xed && second >= 0xa0) ||
         (first == 0xf0 && second < 0x90) || (first == 0xf4 && second >= 0x90);
}

}  // namespace

std::size_t utf8_length(std::string_view text) {
  const std::size_t length = announced_length(byte(text, 0));
  if (length < 2) return length;
  if (text.size() < length || is_forbidden(byte(text, 0), byte(text, 1))) return 0;
  const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) == 0x80U; };
  return std::all_of(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(length),
                     continues)
             ? length
             : 0;
}

std::string valid_utf8(std::string_view text) {
  std::string valid;
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    valid += length == 0 ? kReplacement : std::string(text.substr(0, length));
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return valid;
}

}  // namespace quenby
