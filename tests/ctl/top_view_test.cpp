#include "ctl/top_view.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "ctl/top_output.h"
#include "ctl/top_screen.h"
#include "tests/ctl/shaping_fixture.h"

// What is shown, in which order, and how it looks.
namespace quenby {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

constexpr std::size_t kAll = 1000;

// Three tariffs; the classes of each direction are root, system and theirs.
Shaping three() {
  return shaping_of(test::load_of(test::line(), test::shaped("amy", 4, "10.0.0.1"),
                                  test::shaped("Bob", 5, "10.0.0.2"),
                                  test::shaped("cat", 6, "10.0.0.3", "2000", "2000")),
                    test::kGigabitPort);
}

// The root class and "amy" of a direction carry `factor` times 10,000 bytes per second, "Bob" half
// of it in more packets, "cat" nothing.
std::vector<Activity> busy(double factor = 1) {
  std::vector<Activity> direction = {{10'000 * factor, 20, 1, 500, 9, 300, true},
                                     {0, 0, 0, 0, 0, 0, true},
                                     {10'000 * factor, 10, 0, 100, 0, 0, true},
                                     {5000 * factor, 15, 2, 50, 4, 2500, true},
                                     {0, 0, 0, 7, 0, 0, true}};
  std::vector<Activity> both = direction;
  both.insert(both.end(), direction.begin(), direction.end());
  return both;
}

Lines names(const TopView& view) {
  Lines lines;
  for (const TopRow& row : view.rows) {
    const bool upload = row.shaped->planned.way == Direction::upload;
    lines.push_back(row.shaped->planned.name + (upload ? " up" : " down"));
  }
  return lines;
}

Lines uploads(TopState state) {
  const Shaping shaping = three();
  const std::vector<Activity> activities = busy();
  state.ways = Ways::upload;
  return names(view_of(shaping, activities, state, kAll));
}

TopState sorted(SortBy order, bool reversed = false) {
  TopState state;
  state.sort = order;
  state.reversed = reversed;
  return state;
}

TEST(View, IsInTheOrderThatIsAskedFor) {
  EXPECT_THAT(uploads(sorted(SortBy::rate)),
              ElementsAre("amy up", "Bob up", "system up", "cat up"));
  EXPECT_THAT(uploads(sorted(SortBy::rate, true)),
              ElementsAre("system up", "cat up", "Bob up", "amy up"));
  EXPECT_THAT(uploads(sorted(SortBy::packets)),
              ElementsAre("Bob up", "amy up", "system up", "cat up"));
  EXPECT_THAT(uploads(sorted(SortBy::drops)),
              ElementsAre("Bob up", "system up", "amy up", "cat up"));
  EXPECT_THAT(uploads(sorted(SortBy::backlog)),
              ElementsAre("Bob up", "system up", "amy up", "cat up"));
  EXPECT_THAT(uploads(sorted(SortBy::share)),
              ElementsAre("amy up", "Bob up", "system up", "cat up"));
  EXPECT_THAT(uploads(sorted(SortBy::name)),
              ElementsAre("Bob up", "amy up", "cat up", "system up"));
  EXPECT_THAT(uploads(sorted(SortBy::name, true)),
              ElementsAre("system up", "cat up", "amy up", "Bob up"));
}

TEST(View, HasBothDirectionsOrOne) {
  const Shaping shaping = three();
  const std::vector<Activity> activities = busy();
  TopState state;
  EXPECT_EQ(view_of(shaping, activities, state, kAll).all, 8U);
  state.ways = Ways::download;
  EXPECT_THAT(names(view_of(shaping, activities, state, kAll)),
              ElementsAre("amy down", "Bob down", "system down", "cat down"));
}

Lines filtered(const std::string& filter) {
  TopState state;
  state.filter = filter;
  return uploads(state);
}

TEST(View, IsFilteredByNameAndAddress) {
  EXPECT_THAT(filtered("bo"), ElementsAre("Bob up"));
  EXPECT_THAT(filtered("A"), ElementsAre("amy up", "cat up"));
  EXPECT_THAT(filtered("10.0.0.3"), ElementsAre("cat up"));
  EXPECT_THAT(filtered("10.0.0"), IsEmpty());
  EXPECT_THAT(filtered("10.0.0.4"), IsEmpty());
  EXPECT_THAT(filtered("nobody"), IsEmpty());
}

TEST(View, IsFilteredByThePrefixOfAnAddress) {
  GlobalSet line = test::line();
  line.global.ipv6 = true;
  TariffSettings wide = test::shaped("amy", 4, "10.0.0.1");
  TariffSettings narrow = test::shaped("bob", 5, "10.0.0.2");
  ASSERT_TRUE(wide.addPrefix("2001:db8::/48") && narrow.addPrefix("2001:db8:0:1::/64"));
  const Shaping shaping = shaping_of(test::load_of(line, wide, narrow), test::kGigabitPort);
  const auto found = [&shaping](const std::string& filter) {
    TopState state;
    state.ways = Ways::upload;
    state.filter = filter;
    return names(view_of(shaping, std::vector<Activity>(shaping.classes.size()), state, kAll));
  };
  EXPECT_THAT(found("2001:DB8:0:2::5"), ElementsAre("amy up"));
  EXPECT_THAT(found("2001:db8:0:1::5"), ElementsAre("bob up"));
  EXPECT_THAT(found("10.0.0.2"), ElementsAre("bob up"));
  for (const char* nobodys : {"2001:db8:1::5", "2001:db8::/48", "2001:db8:0:1"})
    EXPECT_THAT(found(nobodys), IsEmpty()) << nobodys;
}

TEST(View, LeavesOutIdleClasses) {
  TopState state;
  state.busy_only = true;
  EXPECT_THAT(uploads(state), ElementsAre("amy up", "Bob up"));
}

TEST(View, IsAPage) {
  const Shaping shaping = three();
  const std::vector<Activity> activities = busy();
  TopState state;
  state.offset = 3;
  const TopView view = view_of(shaping, activities, state, 2);
  EXPECT_THAT(names(view), ElementsAre("Bob down", "system up"));
  EXPECT_EQ(view.all, 8U);
  EXPECT_EQ(view.offset, 3U);
}

TEST(View, DoesNotBeginAfterTheLastPage) {
  const Shaping shaping = three();
  const std::vector<Activity> activities = busy();
  TopState state;
  state.offset = 100;
  EXPECT_EQ(view_of(shaping, activities, state, 3).offset, 5U);
  EXPECT_EQ(view_of(shaping, activities, state, 3).rows.size(), 3U);
  EXPECT_THAT(view_of(shaping, activities, state, 0).rows, IsEmpty());
  EXPECT_EQ(view_of(shaping, activities, state, kAll).offset, 0U);
}

TEST(View, AddsUpWhatIsShown) {
  const Shaping shaping = three();
  std::vector<Activity> activities = busy();
  activities[4].present = false;
  TopState state;
  state.filter = "a";
  const TopView view = view_of(shaping, activities, state, 1);
  EXPECT_EQ(view.totals[0].classes, 2U);
  EXPECT_EQ(view.totals[0].missing, 1U);
  EXPECT_EQ(view.totals[0].bytes_per_second, 10'000);
  ASSERT_TRUE(view.totals[0].line);
  EXPECT_EQ(view.totals[0].line->activity->packets_per_second, 20);
}

TEST(View, TellsWhatItShows) {
  const Shaping shaping = three();
  const std::vector<Activity> activities = busy();
  TopState state;
  state.filter = "a";
  state.ways = Ways::download;
  const TopView view = view_of(shaping, activities, state, 1);
  ASSERT_EQ(view.rows.size(), 1U);
  std::vector<std::string> shown;
  for (const std::size_t place : places_shown(shaping, view)) {
    const PlannedClass& planned = shaping.classes[place].planned;
    shown.push_back(planned.device + ' ' + planned.name);
  }
  EXPECT_EQ(shown, (std::vector<std::string>{"eth1 root", "ifb_ingr root", "ifb_ingr amy"}));
}

Lines texts(const std::vector<ScreenLine>& lines) {
  Lines all;
  for (const ScreenLine& line : lines) all.push_back(line.text);
  return all;
}

struct Shown {
  Shaping shaping = three();
  std::vector<Activity> activities = busy();
  TopState state;
  ScreenFacts facts = {"12:34:56", 1, 1, ""};

  std::vector<ScreenLine> lines(std::size_t width, std::size_t page = kAll) const {
    return screen_of(shaping, view_of(shaping, activities, state, page), state, facts, width);
  }
};

TEST(Screen, OfEightyColumns) {
  Shown shown;
  shown.state.filter = "a";
  // clang-format off
  EXPECT_EQ(texts(shown.lines(80)), (Lines{
      "quenbyctl top  12:34:56  every 1 s  3 tariffs  filter: a                        ",
      "upload   80.0k of 5.00M bit/s [          ]   2%    20 pkt/s  2 shown: 80.0k     ",
      "download 80.0k of 10.0M bit/s [          ]   1%    20 pkt/s  2 shown: 80.0k     ",
      "NAME                WAY   BIT/S CEILING              SHARE  PKT/S DROP/S BACKLOG",
      "amy                 up    80.0k    500k [||        ]   16%     10      0       0",
      "amy                 down  80.0k   1.00M [|         ]    8%     10      0       0",
      "cat                 up        0   2.00M [          ]    0%      0      0       0",
      "cat                 down      0   2.00M [          ]    0%      0      0       0"}));
  // clang-format on
}

TEST(Screen, TellsOfLooksAtAll) {
  Shown shown;
  shown.facts.interval = 0.5;
  shown.facts.interval_of_all = 3.5;
  EXPECT_EQ(shown.lines(60)[0].text,
            "quenbyctl top  12:34:56  every 0.5 s, all every 3.5 s  3 tar");
}

TEST(Screen, FitsEveryWidth) {
  const Shown shown;
  for (std::size_t width = 1; width < 200; ++width) {
    for (const ScreenLine& line : shown.lines(width)) EXPECT_EQ(line.text.size(), width);
  }
}

TEST(Screen, LeavesOutColumnsWhereItIsNarrow) {
  const Shown shown;
  EXPECT_EQ(shown.lines(65)[3].text,
            "NAME              WAY   BIT/S CEILING SHARE  PKT/S DROP/S BACKLOG");
  EXPECT_EQ(shown.lines(40)[3].text, "NAME            WAY   BIT/S SHARE DROP/S");
  EXPECT_EQ(shown.lines(24)[4].text, "amy          up    80.0k");
}

TEST(Screen, GivesTheBarWhatNamesDoNotNeed) {
  const Shown shown;
  const std::string row = shown.lines(140)[4].text;
  EXPECT_EQ(row.find(" up "), 40U);
  EXPECT_EQ(row.find(']') - row.find('['), 50U);
}

TEST(Screen, MarksWhatIsNearlyFull) {
  Shown shown;
  // Of 62,500: 64 %, 80 %, 96 %.
  for (const auto& [factor, look] :
       std::initializer_list<std::pair<double, ScreenLine::Look>>{{4, ScreenLine::Look::plain},
                                                                  {5, ScreenLine::Look::busy},
                                                                  {6, ScreenLine::Look::full}}) {
    shown.activities = busy(factor);
    EXPECT_EQ(shown.lines(80)[4].look, look) << factor;
  }
}

TEST(Screen, SaysWhatTheKernelLacks) {
  Shown shown;
  shown.activities[0] = shown.activities[4] = Activity();
  shown.state.sort = SortBy::name;
  const std::vector<ScreenLine> lines = shown.lines(120);
  EXPECT_EQ(lines[1].text.substr(0, 40), "upload   on eth1: missing in the kernel ");
  EXPECT_EQ(lines[8].look, ScreenLine::Look::faint);
  EXPECT_EQ(lines[8].text.substr(0, 55), "cat                                      up        -   ");
  shown.activities[0].present = true;
  EXPECT_NE(shown.lines(160)[1].text.find("4 shown: 120k, 1 missing in the kernel"),
            std::string::npos);
}

TEST(Screen, SaysWhyThereIsNothing) {
  GlobalSet global = test::line();
  global.global.enabled = false;
  Shown shown;
  shown.shaping = shaping_of(test::load_of(global), test::kGigabitPort);
  shown.activities.clear();
  shown.facts.message = "no answer";
  shown.state.paused = true;
  const std::vector<ScreenLine> lines = shown.lines(100);
  EXPECT_THAT(lines[0].text, testing::HasSubstr("shaping is not enabled  paused  no answer"));
  EXPECT_EQ(lines[0].look, ScreenLine::Look::full);
  EXPECT_EQ(lines[2].text.substr(0, 20), "download not shaped ");
  EXPECT_EQ(lines.size(), 4U);
}

TEST(Screen, HasRoomForTheRows) {
  EXPECT_EQ(rows_of_screen(24), 19U);
  EXPECT_EQ(rows_of_screen(6), 1U);
  EXPECT_EQ(rows_of_screen(5), 0U);
  EXPECT_EQ(rows_of_screen(0), 0U);
}

TEST(TopJson, HasTheLineAndTheClasses) {
  const Shown shown;
  const nlohmann::json object = nlohmann::json::parse(
      json_text(shown.shaping, view_of(shown.shaping, shown.activities, shown.state, kAll), 2));
  EXPECT_EQ(object["seconds"], 2);
  EXPECT_EQ(object["enabled"], true);
  EXPECT_EQ(object["lines"].size(), 2U);
  EXPECT_EQ(object["lines"][1]["device"], "ifb_ingr");
  EXPECT_EQ(object["classes"].size(), 8U);
  const nlohmann::json first = object["classes"][0];
  EXPECT_EQ(first["name"], "amy");
  EXPECT_EQ(first["bytes_per_second"], 10'000);
  EXPECT_EQ(first["share"], 0.16);
  EXPECT_EQ(first["packets"], 100);
}

}  // namespace
}  // namespace quenby
