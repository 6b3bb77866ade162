#include "ctl/top_screen.h"

#include <algorithm>
#include <cmath>

#include "ctl/columns.h"
#include "ctl/direction_name.h"
#include "ctl/units.h"

namespace quenby {
namespace {

using Look = ScreenLine::Look;

// Title, two directions and heads above the rows, the keys below them.
constexpr std::size_t kOtherLines = 5;

// From here on a class is nearly at its ceiling.
constexpr double kBusy = 0.7;
constexpr double kFull = 0.95;

constexpr std::size_t kNarrowName = 12;
constexpr std::size_t kWideName = 40;
constexpr std::size_t kLineBar = 12;

std::string percent(double share) { return std::to_string(std::lround(share * 100)) + '%'; }

std::string short_count(std::uint64_t count) { return short_number(static_cast<double>(count)); }

// A column after that of names. `width` has the blank before it.
struct Column {
  const char* heading;
  std::size_t width;
  // Columns of the highest one go first where the screen is too narrow.
  int priority;
  std::string (*cell)(const TopRow& row, std::size_t width);
};

// A class that the kernel lacks has no numbers.
template <double Activity::*Member>
std::string number_cell(const TopRow& row, std::size_t width) {
  return right(row.activity->present ? short_number((*row.activity).*Member) : "-", width);
}

std::string way_cell(const TopRow& row, std::size_t width) {
  return ' ' + left(row.shaped->planned.way == Direction::upload ? "up" : "down", width - 1);
}

std::string rate_cell(const TopRow& row, std::size_t width) {
  const Activity& activity = *row.activity;
  return right(activity.present ? short_bits(activity.bytes_per_second) : "-", width);
}

std::string ceiling_cell(const TopRow& row, std::size_t width) {
  return right(short_bits(row.ceiling()), width);
}

std::string bar_cell(const TopRow& row, std::size_t width) {
  return ' ' + bar(row.share(), width - 1);
}

std::string share_cell(const TopRow& row, std::size_t width) {
  return right(row.activity->present ? percent(row.share()) : "-", width);
}

std::string backlog_cell(const TopRow& row, std::size_t width) {
  return right(row.activity->present ? short_count(row.activity->backlog_bytes) : "-", width);
}

const std::vector<Column>& all_columns() {
  static const std::vector<Column> kColumns = {
      {" WAY", 5, 0, way_cell},
      {"BIT/S", 7, 0, rate_cell},
      {"CEILING", 8, 4, ceiling_cell},
      {"", 13, 6, bar_cell},
      {"SHARE", 6, 1, share_cell},
      {"PKT/S", 7, 5, number_cell<&Activity::packets_per_second>},
      {"DROP/S", 7, 2, number_cell<&Activity::drops_per_second>},
      {"BACKLOG", 8, 3, backlog_cell},
  };
  return kColumns;
}

// The columns that a screen has room for.
struct Layout {
  std::size_t name = 0;
  std::vector<Column> columns;
};

std::size_t width_of(const std::vector<Column>& columns) {
  std::size_t width = 0;
  for (const Column& column : columns) width += column.width;
  return width;
}

void drop_least(std::vector<Column>& columns) {
  columns.erase(
      std::max_element(columns.begin(), columns.end(),
                       [](const Column& a, const Column& b) { return a.priority < b.priority; }));
}

Layout layout_for(std::size_t width) {
  Layout layout{0, all_columns()};
  while (layout.columns.size() > 2 && width_of(layout.columns) + kNarrowName > width)
    drop_least(layout.columns);
  const std::size_t used = width_of(layout.columns);
  layout.name = width > used ? width - used : 0;
  if (layout.name <= kWideName) return layout;
  // What names do not need is for the bar.
  for (Column& column : layout.columns) {
    if (column.cell == bar_cell) column.width += layout.name - kWideName;
  }
  layout.name = kWideName;
  return layout;
}

ScreenLine heads(const Layout& layout) {
  std::string text = left("NAME", layout.name);
  for (const Column& column : layout.columns) {
    text += column.cell == way_cell ? left(column.heading, column.width)
                                    : right(column.heading, column.width);
  }
  return {Look::heading, text};
}

Look look_of(const TopRow& row) {
  if (!row.activity->present) return Look::faint;
  if (row.share() >= kFull) return Look::full;
  return row.share() >= kBusy ? Look::busy : Look::plain;
}

ScreenLine line_of(const TopRow& row, const Layout& layout) {
  std::string text = left(row.shaped->planned.name, layout.name);
  for (const Column& column : layout.columns) text += column.cell(row, column.width);
  return {look_of(row), text};
}

std::string shown_text(const TopTotal& total) {
  std::string text =
      "  " + short_count(total.classes) + " shown: " + short_bits(total.bytes_per_second);
  if (total.missing > 0) text += ", " + short_count(total.missing) + " missing in the kernel";
  return text;
}

ScreenLine direction_line(const ShapedDirection& direction, const TopTotal& total) {
  const std::string name = left(direction_name(direction.way), 9);
  if (!total.line) return {Look::faint, name + "not shaped"};
  const TopRow& row = *total.line;
  const Activity& activity = *row.activity;
  if (!activity.present)
    return {Look::full, name + "on " + direction.device + ": missing in the kernel"};
  return {look_of(row), name + right(short_bits(activity.bytes_per_second), 5) + " of " +
                            right(short_bits(row.ceiling()), 5) + " bit/s " +
                            bar(row.share(), kLineBar) + right(percent(row.share()), 5) +
                            right(short_number(activity.packets_per_second), 6) + " pkt/s" +
                            shown_text(total)};
}

ScreenLine title(const Shaping& shaping, const TopState& state, const ScreenFacts& facts) {
  std::string text =
      "quenbyctl top  " + facts.time + "  every " + plain_number(facts.interval) + " s";
  if (facts.interval_of_all > facts.interval)
    text += ", all every " + plain_number(facts.interval_of_all) + " s";
  text += "  " + std::to_string(shaping.tariffs) + " tariffs";
  if (!shaping.enabled) text += "  shaping is not enabled";
  if (state.paused) text += "  paused";
  if (!state.filter.empty()) text += "  filter: " + state.filter;
  if (facts.message.empty()) return {Look::plain, text};
  return {Look::full, text + "  " + facts.message};
}

}  // namespace

std::size_t rows_of_screen(std::size_t height) {
  return height > kOtherLines ? height - kOtherLines : 0;
}

std::vector<ScreenLine> screen_of(const Shaping& shaping, const TopView& view,
                                  const TopState& state, const ScreenFacts& facts,
                                  std::size_t width) {
  const Layout layout = layout_for(width);
  std::vector<ScreenLine> lines = {title(shaping, state, facts)};
  for (std::size_t i = 0; i < shaping.directions.size(); ++i)
    lines.push_back(direction_line(shaping.directions[i], view.totals[i]));
  lines.push_back(heads(layout));
  for (const TopRow& row : view.rows) lines.push_back(line_of(row, layout));
  for (ScreenLine& line : lines) line.text = left(line.text, width);
  return lines;
}

}  // namespace quenby
