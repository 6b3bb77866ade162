#pragma once

#include <array>

#include "ctl/activity.h"
#include "ctl/top_state.h"

/// Which classes are shown, in which order, and what they add up to.
namespace quenby {

/// A class with what it does. Borrows both.
struct TopRow {
  const ShapedClass* shaped = nullptr;
  const Activity* activity = nullptr;

  /// Bytes per second that the class may have.
  double ceiling() const { return shaped->planned.htb.ceil; }
  /// The part of the ceiling that is used; 1 is all of it. Above it for a moment by a burst.
  double share() const { return activity->bytes_per_second / ceiling(); }
};

/// One direction of what is shown.
struct TopTotal {
  /// The whole line, its root class; nothing where the direction is not shaped.
  std::optional<TopRow> line;
  /// Classes that are shown, and those that the kernel lacks.
  std::size_t classes = 0;
  std::size_t missing = 0;
  double bytes_per_second = 0;
};

struct TopView {
  /// In order; those before the offset and after the page are not among them.
  std::vector<TopRow> rows;
  /// How many there would be without offset and page.
  std::size_t all = 0;
  std::size_t offset = 0;
  /// As `Shaping::directions`.
  std::array<TopTotal, 2> totals;
};

/// `page` rows of the classes that the state asks for. Activities are in the order of the classes.
TopView view_of(const Shaping& shaping, const std::vector<Activity>& activities,
                const TopState& state, std::size_t page);

/// The places in the list of classes of what the view shows, lines and rows.
std::vector<std::size_t> places_shown(const Shaping& shaping, const TopView& view);

}  // namespace quenby
