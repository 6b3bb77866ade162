#include <clocale>
#include <gtest/gtest.h>

#include "ctl/columns.h"
#include "ctl/units.h"
#include "ctl/utf8.h"

// Numbers, names and bars for a screen, and text for programs.
namespace quenby {
namespace {

TEST(ShortNumber, HasThreeDigitsThatCount) {
  for (const auto& [number, text] :
       std::initializer_list<std::pair<double, const char*>>{{0, "0"},
                                                             {0.4, "0"},
                                                             {1, "1"},
                                                             {999, "999"},
                                                             {999.4, "999"},
                                                             {999.5, "1.00k"},
                                                             {1234, "1.23k"},
                                                             {9994, "9.99k"},
                                                             {9996, "10.0k"},
                                                             {12'340, "12.3k"},
                                                             {99'949, "99.9k"},
                                                             {99'951, "100k"},
                                                             {123'400, "123k"},
                                                             {999'499, "999k"},
                                                             {999'500, "1.00M"},
                                                             {1e9, "1.00G"},
                                                             {2.5e12, "2.50T"},
                                                             {1e15, "1000T"}}) {
    EXPECT_EQ(short_number(number), text) << number;
  }
}

TEST(PlainNumber, HasNoMoreDigitsThanItNeeds) {
  EXPECT_EQ(plain_number(1), "1");
  EXPECT_EQ(plain_number(0.5), "0.5");
}

TEST(ShortBits, AreEightAByte) {
  EXPECT_EQ(short_bits(125'000), "1.00M");
  EXPECT_EQ(short_bits(8), "64");
}

TEST(Bar, ShowsThePartThatIsUsed) {
  EXPECT_EQ(bar(0, 6), "[    ]");
  EXPECT_EQ(bar(0.5, 6), "[||  ]");
  EXPECT_EQ(bar(1, 6), "[||||]");
  EXPECT_EQ(bar(7, 6), "[||||]");
  EXPECT_EQ(bar(-1, 6), "[    ]");
}

TEST(Right, KeepsWhatIsTooLong) {
  EXPECT_EQ(right("12", 4), "  12");
  EXPECT_EQ(right("12345", 4), "12345");
}

class Left : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr); }
  void TearDown() override { std::setlocale(LC_CTYPE, "C"); }
};

TEST_F(Left, CutsAndFillsUp) {
  EXPECT_EQ(left("abc", 5), "abc  ");
  EXPECT_EQ(left("abcdef", 5), "abcde");
  EXPECT_EQ(left("", 2), "  ");
  EXPECT_EQ(left("abc", 0), "");
}

TEST_F(Left, CountsColumnsAndNotBytes) {
  EXPECT_EQ(left("Käthe", 6), "Käthe ");
  // Two columns each.
  EXPECT_EQ(left("日本語", 5), "日本 ");
  // A combining mark takes none.
  EXPECT_EQ(left("e\xcc\x81x", 3), "e\xcc\x81x ");
}

TEST_F(Left, ShowsNothingThatATerminalObeys) {
  EXPECT_EQ(left("a\033[2Jb", 8), "a?[2Jb  ");
  EXPECT_EQ(left("a\tb\n", 5), "a?b? ");
  // The same in one character, and a byte that is none.
  EXPECT_EQ(left("a\xc2\x9b"
                 "b",
                 4),
            "a?b ");
  EXPECT_EQ(left("a\xff"
                 "b",
                 4),
            "a?b ");
}

TEST(LeftWithoutUtf8, ShowsAsciiAlone) { EXPECT_EQ(left("Käthe", 6), "K?the "); }

TEST(ValidUtf8, KeepsCharacters) {
  for (const char* const text : {"", "plain", "Käthe", "日本語", "\xf0\x9f\x98\x80", "\xef\xbf\xbf",
                                 "\xf4\x8f\xbf\xbf", "\xc2\x80", "\xe0\xa0\x80"})
    EXPECT_EQ(valid_utf8(text), text);
}

TEST(ValidUtf8, ReplacesWhatIsNone) {
  const std::string r = "\xef\xbf\xbd";
  for (const auto& [text, valid] : std::initializer_list<std::pair<std::string, std::string>>{
           {"\xff", r},
           {"K\xe4the", "K" + r + "the"},
           {"\xc3", r},
           {"\xe2\x82", r + r},
           {"a\x80", "a" + r},
           // Longer than need be, a surrogate, above the last one.
           {"\xc0\x80", r + r},
           {"\xe0\x9f\xbf", r + r + r},
           {"\xed\xa0\x80", r + r + r},
           {"\xf0\x8f\xbf\xbf", r + r + r + r},
           {"\xf4\x90\x80\x80", r + r + r + r},
           {"\xf5\x80\x80\x80", r + r + r + r}}) {
    EXPECT_EQ(valid_utf8(text), valid);
  }
}

}  // namespace
}  // namespace quenby
