#include "ctl/columns.h"

#include <algorithm>
#include <cmath>
#include <cwchar>

#include "ctl/utf8.h"

namespace quenby {
namespace {

// A character's bytes as they are shown, and the columns that they take.
struct Glyph {
  std::string text = "?";
  std::size_t columns = 1;
};

Glyph glyph_of(std::string_view character) {
  std::mbstate_t state{};
  wchar_t wide = 0;
  if (std::mbrtowc(&wide, character.data(), character.size(), &state) != character.size())
    return {};
  const int columns = wcwidth(wide);
  if (columns < 0) return {};
  return {std::string(character), static_cast<std::size_t>(columns)};
}

// Takes a character off the text.
Glyph next_glyph(std::string_view& text) {
  const std::size_t length = std::max<std::size_t>(utf8_length(text), 1);
  Glyph glyph = glyph_of(text.substr(0, length));
  text.remove_prefix(length);
  return glyph;
}

}  // namespace

std::string left(std::string_view text, std::size_t width) {
  std::string shown;
  std::size_t used = 0;
  while (!text.empty()) {
    const Glyph glyph = next_glyph(text);
    if (used + glyph.columns > width) break;
    shown += glyph.text;
    used += glyph.columns;
  }
  return shown + std::string(width - used, ' ');
}

std::string right(const std::string& text, std::size_t width) {
  return std::string(width - std::min(width, text.size()), ' ') + text;
}

std::string bar(double share, std::size_t width) {
  const std::size_t room = width - 2;
  const double full = std::clamp(share, 0.0, 1.0) * static_cast<double>(room);
  const auto filled = static_cast<std::size_t>(std::lround(full));
  return '[' + std::string(filled, '|') + std::string(room - filled, ' ') + ']';
}

}  // namespace quenby
