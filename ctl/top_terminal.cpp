#include "ctl/top_terminal.h"

#include <algorithm>
#include <cstdlib>
#include <curses.h>
#include <map>
#include <unistd.h>

#include "ctl/columns.h"
#include "ctl/status.h"
#include "ctl/terminal.h"

namespace quenby {
namespace {

constexpr short kDefault = -1;
constexpr short kBusyPair = 1;
constexpr short kFullPair = 2;

// A single Esc is told from the keys that begin with one by the time that passes after it.
constexpr int kEscapeMilliseconds = 50;

bool has_terminal() { return isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1; }

void start_colours() {
  if (!stdout_has_colours() || !has_colors()) return;
  start_color();
  use_default_colors();
  init_pair(kBusyPair, COLOR_YELLOW, kDefault);
  init_pair(kFullPair, COLOR_RED, kDefault);
}

attr_t attributes_of(ScreenLine::Look look) {
  switch (look) {
    case ScreenLine::Look::plain:
      return A_NORMAL;
    case ScreenLine::Look::heading:
      return A_REVERSE;
    case ScreenLine::Look::busy:
      return static_cast<attr_t>(COLOR_PAIR(kBusyPair));
    case ScreenLine::Look::full:
      return static_cast<attr_t>(COLOR_PAIR(kFullPair)) | A_BOLD;
    case ScreenLine::Look::faint:
      return A_DIM;
  }
  return A_NORMAL;
}

void draw_line(int row, const std::string& text, attr_t attributes) {
  attrset(static_cast<int>(attributes));
  // The last column of the last row cannot be written without an error, which is none.
  mvaddnstr(row, 0, text.c_str(), static_cast<int>(text.size()));
  attrset(A_NORMAL);
  clrtoeol();
}

std::size_t size_of(int measured) { return static_cast<std::size_t>(std::max(measured, 0)); }

KeyPress key_of(int code) {
  using Kind = KeyPress::Kind;
  static const std::map<int, Kind> kKinds = {
      {KEY_UP, Kind::up},
      {KEY_DOWN, Kind::down},
      {KEY_PPAGE, Kind::page_up},
      {KEY_NPAGE, Kind::page_down},
      {KEY_HOME, Kind::home},
      {KEY_END, Kind::end},
      {KEY_ENTER, Kind::enter},
      {'\r', Kind::enter},
      {'\n', Kind::enter},
      {27, Kind::escape},
      {KEY_BACKSPACE, Kind::backspace},
      {127, Kind::backspace},
      {'\b', Kind::backspace},
  };
  const auto known = kKinds.find(code);
  if (known != kKinds.end()) return {known->second, '\0'};
  const bool is_byte = code == '\t' || (code >= ' ' && code <= 0xff);
  if (!is_byte) return {};
  return {Kind::character, static_cast<char>(code)};
}

}  // namespace

Terminal::Terminal() : screen_(nullptr) {
  if (!has_terminal()) throw NotRun("the live screen needs a terminal; --once prints it");
  // newterm, as initscr ends the process.
  screen_ = newterm(nullptr, stdout, stdin);
  if (screen_ == nullptr)
    throw NotRun("the terminal's type is not known; --once prints the screen");
  set_escdelay(kEscapeMilliseconds);
  cbreak();
  noecho();
  nonl();
  keypad(stdscr, true);
  curs_set(0);
  start_colours();
}

Terminal::~Terminal() {
  endwin();
  delscreen(screen_);
}

std::size_t Terminal::width() const { return size_of(getmaxx(stdscr)); }

std::size_t Terminal::height() const { return size_of(getmaxy(stdscr)); }

void Terminal::draw(const std::vector<ScreenLine>& lines, const std::string& keys) {
  const auto last = static_cast<int>(height()) - 1;
  int row = 0;
  for (const ScreenLine& line : lines) {
    if (row < last) draw_line(row++, line.text, attributes_of(line.look));
  }
  move(row, 0);
  clrtobot();
  draw_line(last, left(keys, width()), A_DIM);
  refresh();
}

std::optional<KeyPress> Terminal::wait(int milliseconds) {
  timeout(milliseconds);
  const int code = getch();
  // Without this a terminal that was closed would be asked again and again.
  if (code == ERR && !has_terminal()) throw NotRun("the terminal is gone");
  if (code == ERR || code == KEY_RESIZE) return std::nullopt;
  return key_of(code);
}

}  // namespace quenby
