#pragma once

#include <string>

/// What the operator has chosen on the live screen, and what a key does to it.
namespace quenby {

enum class SortBy { rate, share, packets, drops, backlog, name };
enum class Ways { both, upload, download };

struct TopState {
  SortBy sort = SortBy::rate;
  bool reversed = false;
  Ways ways = Ways::both;
  /// Whether classes without traffic are left out.
  bool busy_only = false;
  bool paused = false;
  /// Only tariffs with this in their name, or that this address belongs to.
  std::string filter;
  /// Whether keys go into the filter.
  bool typing = false;
  /// The first row that is shown.
  std::size_t offset = 0;
};

struct KeyPress {
  enum class Kind {
    character,
    up,
    down,
    page_up,
    page_down,
    home,
    end,
    enter,
    escape,
    backspace,
    other,
  } kind = Kind::other;
  char character = '\0';
};

/// Does what the key is for; false when it ends the screen. `page` is the number of rows that are
/// shown, `rows` of those that there are.
bool press(TopState& state, const KeyPress& key, std::size_t page, std::size_t rows);

/// The first row to show where the chosen one would leave the page empty.
std::size_t clamped_offset(std::size_t offset, std::size_t page, std::size_t rows);

/// What the last line says of the keys.
std::string key_line(const TopState& state);

}  // namespace quenby
