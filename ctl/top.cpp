#include "ctl/top.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <chrono>
#include <clocale>
#include <ctime>
#include <iostream>
#include <limits>
#include <map>
#include <thread>
#include <unistd.h>

#include "ctl/look_pace.h"
#include "ctl/refusal.h"
#include "ctl/silence.h"
#include "ctl/top_model.h"
#include "ctl/top_output.h"
#include "ctl/top_terminal.h"

namespace quenby {
namespace {

using Clock = LookPace::Clock;

constexpr std::size_t kAllRows = std::numeric_limits<std::size_t>::max();
constexpr std::size_t kUsualWidth = 80;

const std::map<std::string, SortBy>& orders() {
  static const std::map<std::string, SortBy> kOrders = {
      {"rate", SortBy::rate},   {"share", SortBy::share},     {"packets", SortBy::packets},
      {"drops", SortBy::drops}, {"backlog", SortBy::backlog}, {"name", SortBy::name}};
  return kOrders;
}

TopState first_state(const TopOptions& options) {
  TopState state;
  state.sort = orders().at(options.order);
  state.filter = options.filter;
  return state;
}

std::string time_of_day() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[16];
  std::strftime(text, sizeof(text), "%H:%M:%S", &local);
  return text;
}

std::size_t stdout_width() {
  winsize size{};
  const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? size.ws_col : kUsualWidth;
}

void print_line(const ScreenLine& line) {
  std::cout << line.text.substr(0, line.text.find_last_not_of(' ') + 1) << '\n';
}

// Two looks, one interval apart.
Status print_once(const TopOptions& options) {
  TopModel model;
  std::this_thread::sleep_for(std::chrono::duration<double>(options.interval));
  model.look_at_all(true);
  const TopState state = first_state(options);
  const TopView view = view_of(model.shaping(), model.activities(), state, kAllRows);
  if (options.json) {
    std::cout << json_text(model.shaping(), view, model.seconds());
  } else {
    const ScreenFacts facts = {time_of_day(), options.interval, options.interval, ""};
    for (const ScreenLine& line : screen_of(model.shaping(), view, state, facts, stdout_width()))
      print_line(line);
  }
  return kFine;
}

Clock::duration in_clock(double seconds) {
  return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

// The screen and what it shows.
class LiveScreen {
 public:
  explicit LiveScreen(const TopOptions& options)
      : state_(first_state(options)),
        facts_{time_of_day(), options.interval, options.interval, ""},
        interval_(options.interval),
        pace_(options.interval) {}

  // Until the operator ends it.
  void run();

 private:
  void look();
  void read(bool at_all);
  void draw();
  int milliseconds_left() const;

  TopModel model_;
  Terminal terminal_;
  SilentStderr silence_;
  TopState state_;
  ScreenFacts facts_;
  double interval_;
  LookPace pace_;
  Clock::time_point next_ = Clock::now();
  std::size_t rows_ = 0;
  std::vector<std::size_t> shown_;
};

void LiveScreen::look() {
  const Clock::time_point begin = Clock::now();
  next_ = std::max(next_ + in_clock(interval_), begin);
  if (state_.paused) return draw();
  const std::clock_t before = std::clock();
  const bool at_all = pace_.is_at_all(begin);
  read(at_all);
  draw();
  const double used = static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC;
  const std::chrono::duration<double> elapsed = Clock::now() - begin;
  pace_.note(at_all, begin, elapsed.count(), used);
  if (pace_.interval() > interval_) next_ = std::max(next_, begin + in_clock(pace_.interval()));
}

void LiveScreen::read(bool at_all) {
  facts_.time = time_of_day();
  // The files may be good again at the next look, and the kernel answer.
  try {
    if (at_all) {
      facts_.message.clear();
      model_.look_at_all(false);
    } else {
      model_.look_at(shown_);
    }
  } catch (const std::exception& e) {
    facts_.message = e.what();
  }
}

void LiveScreen::draw() {
  facts_.interval = pace_.interval();
  facts_.interval_of_all = pace_.interval_of_all();
  const TopView view =
      view_of(model_.shaping(), model_.activities(), state_, rows_of_screen(terminal_.height()));
  rows_ = view.all;
  shown_ = places_shown(model_.shaping(), view);
  state_.offset = view.offset;
  terminal_.draw(screen_of(model_.shaping(), view, state_, facts_, terminal_.width()),
                 key_line(state_));
}

int LiveScreen::milliseconds_left() const {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next_ - Clock::now());
  return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

void LiveScreen::run() {
  next_ = Clock::now() + in_clock(interval_);
  draw();
  for (bool wanted = true; wanted;) {
    const auto key = terminal_.wait(milliseconds_left());
    if (key) wanted = press(state_, *key, rows_of_screen(terminal_.height()), rows_);
    if (Clock::now() >= next_) {
      look();
    } else {
      draw();
    }
  }
}

}  // namespace

Status top(const TopOptions& options) {
  // What a character is on this terminal.
  std::setlocale(LC_CTYPE, "");
  return or_refusal([&options] {
    if (options.once || options.json) return print_once(options);
    LiveScreen(options).run();
    return kFine;
  });
}

std::vector<std::string> top_orders() {
  std::vector<std::string> names;
  for (const auto& [name, order] : orders()) names.push_back(name);
  return names;
}

}  // namespace quenby
