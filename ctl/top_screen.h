#pragma once

#include <string>
#include <vector>

#include "ctl/top_view.h"

/// The live screen as text.
namespace quenby {

struct ScreenLine {
  enum class Look { plain, heading, busy, full, faint } look = Look::plain;
  /// As wide as the screen.
  std::string text;
};

/// What stands in the title beside the choices.
struct ScreenFacts {
  std::string time;
  /// What lies between the last look and the next one, in seconds.
  double interval = 1;
  /// The same of looks at all classes, where the others are at those on the screen.
  double interval_of_all = 1;
  /// What went wrong at the last look; empty when all is well.
  std::string message;
};

/// The rows that fit between title and keys on a screen of this height.
std::size_t rows_of_screen(std::size_t height);

/// Title, a line per direction, column heads, and the view's rows.
std::vector<ScreenLine> screen_of(const Shaping& shaping, const TopView& view,
                                  const TopState& state, const ScreenFacts& facts,
                                  std::size_t width);

}  // namespace quenby
