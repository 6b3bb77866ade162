#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ctl/top_screen.h"

struct screen;  // curses's

namespace quenby {

/// The terminal while the live screen is on it; put back when this goes.
class Terminal {
 public:
  /// Throws `NotRun` where there is no terminal of a known type.
  Terminal();
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  std::size_t width() const;
  std::size_t height() const;

  /// Shows the lines from the top, and `keys` at the bottom.
  void draw(const std::vector<ScreenLine>& lines, const std::string& keys);

  /// The next key. Nothing after `milliseconds` without one, or when the window has another size.
  /// Throws `NotRun` when the terminal is gone.
  std::optional<KeyPress> wait(int milliseconds);

 private:
  ::screen* screen_;
};

}  // namespace quenby
