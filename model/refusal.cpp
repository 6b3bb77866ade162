#include "model/refusal.h"

#include <string_view>

namespace quenby {
namespace {

constexpr std::size_t kLongest = 64;
constexpr unsigned kFirstPrintable = 0x20;
constexpr unsigned kDelete = 0x7f;

std::string printable(char c) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const unsigned code = static_cast<unsigned char>(c);
  if (code >= kFirstPrintable && code != kDelete) return {c};
  return {'\\', 'x', kDigits[code / kDigits.size()], kDigits[code % kDigits.size()]};
}

}  // namespace

std::string quoted(const std::string& text) {
  std::string shown = "\"";
  for (const char c : text.substr(0, kLongest)) shown += printable(c);
  return shown + (text.size() > kLongest ? "...\"" : "\"");
}

}  // namespace quenby
