#include "ctl/top_state.h"

#include <algorithm>
#include <map>

namespace quenby {
namespace {

const std::map<char, SortBy>& sort_keys() {
  static const std::map<char, SortBy> kKeys = {
      {'r', SortBy::rate},  {'s', SortBy::share},   {'p', SortBy::packets},
      {'d', SortBy::drops}, {'b', SortBy::backlog}, {'n', SortBy::name},
  };
  return kKeys;
}

// The key of the order that is shown already turns it round.
void sort_by(TopState& state, SortBy order) {
  state.reversed = state.sort == order && !state.reversed;
  state.sort = order;
  state.offset = 0;
}

Ways next(Ways ways) {
  if (ways == Ways::both) return Ways::upload;
  return ways == Ways::upload ? Ways::download : Ways::both;
}

// A character may be several bytes, all but the first of which begin with the bits 10.
void remove_last(std::string& text) {
  const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) == 0x80U; };
  while (!text.empty() && continues(text.back())) text.pop_back();
  if (!text.empty()) text.pop_back();
}

void type(TopState& state, const KeyPress& key) {
  switch (key.kind) {
    case KeyPress::Kind::character:
      state.filter += key.character;
      break;
    case KeyPress::Kind::backspace:
      remove_last(state.filter);
      break;
    case KeyPress::Kind::escape:
      state.filter.clear();
      state.typing = false;
      break;
    case KeyPress::Kind::enter:
      state.typing = false;
      break;
    default:
      break;
  }
  state.offset = 0;
}

void scroll(TopState& state, KeyPress::Kind kind, std::size_t page, std::size_t rows) {
  const std::size_t step = kind == KeyPress::Kind::page_up || kind == KeyPress::Kind::page_down
                               ? std::max<std::size_t>(page, 1)
                               : 1;
  if (kind == KeyPress::Kind::home) state.offset = 0;
  if (kind == KeyPress::Kind::end) state.offset = rows;
  if (kind == KeyPress::Kind::up || kind == KeyPress::Kind::page_up)
    state.offset -= std::min(step, state.offset);
  if (kind == KeyPress::Kind::down || kind == KeyPress::Kind::page_down) state.offset += step;
  state.offset = clamped_offset(state.offset, page, rows);
}

bool choose(TopState& state, char character) {
  const auto order = sort_keys().find(character);
  if (order != sort_keys().end()) sort_by(state, order->second);
  switch (character) {
    case 'q':
      return false;
    case '\t':
      state.ways = next(state.ways);
      state.offset = 0;
      break;
    case 'i':
      state.busy_only = !state.busy_only;
      state.offset = 0;
      break;
    case ' ':
      state.paused = !state.paused;
      break;
    case '/':
      state.typing = true;
      break;
    default:
      break;
  }
  return true;
}

}  // namespace

bool press(TopState& state, const KeyPress& key, std::size_t page, std::size_t rows) {
  if (state.typing) {
    type(state, key);
  } else if (key.kind == KeyPress::Kind::character) {
    return choose(state, key.character);
  } else if (key.kind == KeyPress::Kind::escape) {
    state.filter.clear();
    state.offset = 0;
  } else {
    scroll(state, key.kind, page, rows);
  }
  return true;
}

std::size_t clamped_offset(std::size_t offset, std::size_t page, std::size_t rows) {
  return std::min(offset, rows > page ? rows - page : 0);
}

std::string key_line(const TopState& state) {
  if (state.typing) return "filter: " + state.filter + "_";
  return "q quit  / filter  Tab direction  i idle  space pause  "
         "sort: r rate s share p packets d drops b backlog n name";
}

}  // namespace quenby
