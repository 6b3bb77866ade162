#include "ctl/top_view.h"

#include <algorithm>
#include <cctype>

#include "ctl/address.h"

namespace quenby {
namespace {

bool same_letter(char a, char b) {
  return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

// Decides which classes are shown.
class Filter {
 public:
  Filter(const TopState& state, const Shaping& shaping) : state_(state) {
    const auto address = parse_address(state.filter);
    if (address) holder_ = find_holder(shaping, *address);
  }

  bool takes(const ShapedClass& shaped, const Activity& activity) const {
    if (shaped.is_root() || !takes_way(shaped.planned.way)) return false;
    if (state_.busy_only && activity.bytes_per_second <= 0 && activity.backlog_bytes == 0)
      return false;
    return state_.filter.empty() || takes_name(shaped.planned);
  }

 private:
  bool takes_way(Direction way) const {
    if (state_.ways == Ways::both) return true;
    return (way == Direction::upload) == (state_.ways == Ways::upload);
  }
  bool takes_name(const PlannedClass& planned) const {
    if (holder_ && has(planned, *holder_)) return true;
    return std::search(planned.name.begin(), planned.name.end(), state_.filter.begin(),
                       state_.filter.end(), same_letter) != planned.name.end();
  }

  const TopState& state_;
  std::optional<Holder> holder_;
};

double measure(const TopRow& row, SortBy order) {
  switch (order) {
    case SortBy::rate:
      return row.activity->bytes_per_second;
    case SortBy::share:
      return row.share();
    case SortBy::packets:
      return row.activity->packets_per_second;
    case SortBy::drops:
      return row.activity->drops_per_second;
    case SortBy::backlog:
      return static_cast<double>(row.activity->backlog_bytes);
    case SortBy::name:
      break;
  }
  return 0;
}

// The busiest first, or the names in order; what is equal stays as the classes are. The places of
// classes in their list are those of their addresses.
bool is_before(const TopRow& a, const TopRow& b, const TopState& state) {
  if (state.sort == SortBy::name) {
    const int order = a.shaped->planned.name.compare(b.shaped->planned.name);
    if (order != 0) return state.reversed ? order > 0 : order < 0;
  } else {
    const double left = measure(a, state.sort);
    const double right = measure(b, state.sort);
    if (left != right) return state.reversed ? left < right : left > right;
  }
  return a.shaped < b.shaped;
}

void add(const TopRow& row, TopTotal& total) {
  ++total.classes;
  if (!row.activity->present) ++total.missing;
  total.bytes_per_second += row.activity->bytes_per_second;
}

// Only the page has to be in order.
void cut_to_page(std::vector<TopRow>& rows, const TopState& state, std::size_t offset,
                 std::size_t page) {
  const std::size_t end = offset + std::min(page, rows.size() - offset);
  const auto place = [&rows](std::size_t at) {
    return rows.begin() + static_cast<std::ptrdiff_t>(at);
  };
  std::partial_sort(place(0), place(end), rows.end(),
                    [&state](const TopRow& a, const TopRow& b) { return is_before(a, b, state); });
  rows.resize(end);
  rows.erase(place(0), place(offset));
}

}  // namespace

TopView view_of(const Shaping& shaping, const std::vector<Activity>& activities,
                const TopState& state, std::size_t page) {
  const Filter filter(state, shaping);
  TopView view;
  for (std::size_t i = 0; i < shaping.classes.size(); ++i) {
    const TopRow row{&shaping.classes[i], &activities[i]};
    TopTotal& total = view.totals[row.shaped->planned.way == Direction::upload ? 0 : 1];
    if (row.shaped->is_root()) total.line = row;
    if (!filter.takes(*row.shaped, *row.activity)) continue;
    add(row, total);
    view.rows.push_back(row);
  }
  view.all = view.rows.size();
  view.offset = clamped_offset(state.offset, page, view.all);
  cut_to_page(view.rows, state, view.offset, page);
  return view;
}

std::vector<std::size_t> places_shown(const Shaping& shaping, const TopView& view) {
  std::vector<std::size_t> places;
  const auto note = [&](const TopRow& row) {
    places.push_back(static_cast<std::size_t>(row.shaped - shaping.classes.data()));
  };
  for (const TopTotal& total : view.totals) {
    if (total.line) note(*total.line);
  }
  for (const TopRow& row : view.rows) note(row);
  return places;
}

}  // namespace quenby
