#include "ctl/finding.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

// How a finding is shown.
namespace quenby {
namespace {

Finding finding(Position at) { return {"a.ini", at, Severity::warning, "some-code", "why"}; }

std::string shown(Position at, const std::string& text) {
  const IniText source("a.ini", text);
  return to_text(finding(at), &source, false);
}

TEST(FindingText, HasThePlaceTheLineAndACaret) {
  EXPECT_EQ(shown({2, 4}, "[a]\nip=x\n"), "a.ini:2:4: warning: why\nip=x\n   ^\n");
  EXPECT_EQ(shown({1, 1}, "x\r\n"), "a.ini:1:1: warning: why\nx\n^\n");
  EXPECT_EQ(shown({1, 4}, "id="), "a.ini:1:4: warning: why\nid=\n   ^\n");
}

TEST(FindingText, OfTheWholeFileHasNeither) {
  EXPECT_EQ(shown({}, "x\n"), "a.ini: warning: why\n");
  EXPECT_EQ(to_text(finding({3, 1}), nullptr, false), "a.ini:3:1: warning: why\n");
}

TEST(FindingText, PutsTheCaretBelowItsCharacter) {
  EXPECT_EQ(shown({1, 6}, "\tid =x\n"), "a.ini:1:6: warning: why\n\tid =x\n\t    ^\n");
  EXPECT_EQ(shown({1, 4}, "[äö]\n"), "a.ini:1:4: warning: why\n[äö]\n  ^\n");
}

TEST(FindingText, ShowsNothingThatATerminalObeys) {
  EXPECT_EQ(shown({1, 1}, "a\033[31mb\x7f\n"), "a.ini:1:1: warning: why\na?[31mb?\n^\n");
}

TEST(FindingText, ShowsAPartOfALongLine) {
  const std::string text = shown({1, 2001}, std::string(4000, 'x'));
  EXPECT_EQ(text, "a.ini:1:2001: warning: why\n" + std::string(120, 'x') + "\n" +
                      std::string(80, ' ') + "^\n");
}

TEST(FindingText, HasColoursWhereTheyAreWanted) {
  Finding error = finding({});
  error.severity = Severity::error;
  EXPECT_EQ(to_text(error, nullptr, true), "\033[1ma.ini:\033[m \033[1;31merror:\033[m why\n");
}

TEST(FindingJson, HasEveryMember) {
  const auto members = [](const Position& at) {
    std::string text = json_text({finding(at)});
    std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
    return text;
  };
  EXPECT_EQ(members({2, 4}),
            R"({"findings":[{"code":"some-code","column":4,"file":"a.ini","line":2,)"
            R"("severity":"warning","text":"why"}]})");
  EXPECT_EQ(members({}),
            R"({"findings":[{"code":"some-code","column":null,"file":"a.ini","line":null,)"
            R"("severity":"warning","text":"why"}]})");
}

TEST(FindingOrder, IsThatOfThePlaces) {
  Findings list = {finding({2, 1}), finding({1, 9}), finding({})};
  sort_by_place(list);
  EXPECT_EQ(list[0].at, Position());
  EXPECT_EQ(list[1].at, (Position{1, 9}));
  EXPECT_EQ(list[2].at, (Position{2, 1}));
}

}  // namespace
}  // namespace quenby
