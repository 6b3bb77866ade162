#include "ctl/top_state.h"

#include <gtest/gtest.h>

// What keys do.
namespace quenby {
namespace {

using Kind = KeyPress::Kind;

constexpr std::size_t kPage = 10;
constexpr std::size_t kRows = 35;

bool press_key(TopState& state, Kind kind) { return press(state, {kind, '\0'}, kPage, kRows); }

bool type(TopState& state, const std::string& text) {
  bool goes_on = true;
  for (const char c : text) goes_on = press(state, {Kind::character, c}, kPage, kRows);
  return goes_on;
}

TEST(Keys, ChooseTheOrder) {
  TopState state;
  const std::initializer_list<std::pair<char, SortBy>> orders = {
      {'s', SortBy::share},   {'p', SortBy::packets}, {'d', SortBy::drops},
      {'b', SortBy::backlog}, {'n', SortBy::name},    {'r', SortBy::rate}};
  for (const auto& [key, order] : orders) {
    EXPECT_TRUE(type(state, std::string(1, key)));
    EXPECT_EQ(state.sort, order);
    EXPECT_FALSE(state.reversed);
  }
}

TEST(Keys, TurnTheOrderRound) {
  TopState state;
  type(state, "n");
  type(state, "n");
  EXPECT_TRUE(state.reversed);
  type(state, "n");
  EXPECT_FALSE(state.reversed);
  type(state, "nr");
  EXPECT_FALSE(state.reversed);
}

TEST(Keys, ChooseWhatIsShown) {
  TopState state;
  type(state, "\t");
  EXPECT_EQ(state.ways, Ways::upload);
  type(state, "\t");
  EXPECT_EQ(state.ways, Ways::download);
  type(state, "\t");
  EXPECT_EQ(state.ways, Ways::both);
  type(state, "i ");
  EXPECT_TRUE(state.busy_only);
  EXPECT_TRUE(state.paused);
  type(state, "i ");
  EXPECT_FALSE(state.busy_only);
  EXPECT_FALSE(state.paused);
}

TEST(Keys, EndTheScreen) {
  TopState state;
  EXPECT_FALSE(type(state, "q"));
  EXPECT_TRUE(type(state, "xyzQ"));
  EXPECT_TRUE(press_key(state, Kind::escape));
  EXPECT_TRUE(press_key(state, Kind::other));
}

TEST(Keys, TypeAFilter) {
  TopState state;
  state.offset = 5;
  EXPECT_TRUE(type(state, "/quick\t"));
  EXPECT_EQ(state.filter, "quick\t");
  EXPECT_EQ(state.offset, 0U);
  press_key(state, Kind::backspace);
  press_key(state, Kind::down);
  EXPECT_EQ(state.filter, "quick");
  EXPECT_EQ(key_line(state), "filter: quick_");
  press_key(state, Kind::enter);
  EXPECT_FALSE(state.typing);
  EXPECT_EQ(state.filter, "quick");
  EXPECT_FALSE(type(state, "q"));
}

TEST(Keys, TakeAFilterAway) {
  TopState state;
  type(state, "/abc");
  press_key(state, Kind::escape);
  EXPECT_EQ(state.filter, "");
  EXPECT_FALSE(state.typing);
  type(state, "/abc");
  press_key(state, Kind::enter);
  press_key(state, Kind::escape);
  EXPECT_EQ(state.filter, "");
}

TEST(Keys, RemoveWholeCharacters) {
  TopState state;
  type(state, "/Kä");
  press_key(state, Kind::backspace);
  EXPECT_EQ(state.filter, "K");
  press_key(state, Kind::backspace);
  press_key(state, Kind::backspace);
  EXPECT_EQ(state.filter, "");
}

TEST(Keys, ScrollWithinTheRows) {
  TopState state;
  const std::initializer_list<std::pair<Kind, std::size_t>> steps = {
      {Kind::up, 0},         {Kind::down, 1},  {Kind::page_down, 11}, {Kind::page_down, 21},
      {Kind::page_down, 25}, {Kind::down, 25}, {Kind::page_up, 15},   {Kind::up, 14},
      {Kind::home, 0},       {Kind::end, 25},  {Kind::page_up, 15},   {Kind::page_up, 5},
      {Kind::page_up, 0}};
  for (const auto& [kind, offset] : steps) {
    press_key(state, kind);
    EXPECT_EQ(state.offset, offset);
  }
}

TEST(Keys, DoNotScrollWhatFits) {
  TopState state;
  for (const Kind kind : {Kind::down, Kind::page_down, Kind::end}) {
    press(state, {kind, '\0'}, kPage, kPage);
    EXPECT_EQ(state.offset, 0U);
  }
}

TEST(Keys, OfAScreenWithoutRowsScroll) {
  TopState state;
  press(state, {Kind::page_down, '\0'}, 0, kRows);
  EXPECT_EQ(state.offset, 1U);
}

}  // namespace
}  // namespace quenby
