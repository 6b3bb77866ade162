#include <gtest/gtest.h>
#include <string>

#include "config/tariff_ini_file.h"

// The reader's pieces, which work in place.
namespace quenby {
namespace {

TEST(TrimLeft, SkipsWhiteSpace) {
  std::string text = " \t\v\f\r\n a b ";
  EXPECT_STREQ(TariffIniFile::trim_left(text.data()), "a b ");
  std::string blank = " \t ";
  EXPECT_STREQ(TariffIniFile::trim_left(blank.data()), "");
}

TEST(TrimRight, EndsTheTextAfterTheLastCharacter) {
  std::string text = " a b \r\n";
  EXPECT_STREQ(TariffIniFile::trim_right(text.data()), " a b");
  std::string blank = " \t ";
  EXPECT_STREQ(TariffIniFile::trim_right(blank.data()), "");
  std::string empty;
  EXPECT_STREQ(TariffIniFile::trim_right(empty.data()), "");
}

TEST(TrimRight, EndsTheTextAtTheGivenPlace) {
  std::string text = "key  =value";
  EXPECT_STREQ(TariffIniFile::trim_right(text.data(), text.data() + 5), "key");
  std::string whole = "key=value";
  EXPECT_STREQ(TariffIniFile::trim_right(whole.data(), whole.data() + 3), "key");
}

TEST(TrimRight, KeepsBytesAbove127) {
  std::string text = "\xa0\xff \n";
  EXPECT_STREQ(TariffIniFile::trim_right(text.data()), "\xa0\xff");
}

TEST(ParseSection, TakesTheNameUpToTheFirstBracket) {
  const struct {
    const char* text;
    const char* name;
  } rows[] = {{"a]", "a"},         {"  a  ]", "a"},      {"a b]", "a b"}, {"A]", "A"},
              {"a]b]", "a"},       {"a] ; text\n", "a"}, {"[a]", "[a"},   {"a=b]", "a=b"},
              {"\ta\t]\r\n", "a"}, {"\xff]", "\xff"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    std::string text = row.text;
    std::string name;
    EXPECT_TRUE(TariffIniFile::parse_section(text.data(), name));
    EXPECT_EQ(name, row.name);
  }
}

TEST(ParseSection, RefusesAHeaderWithoutAName) {
  for (const char* header : {"]", "  ]", "\t\n]", "a", "", " ", "a\n", "a}", "]a]", "(a)", "a["}) {
    SCOPED_TRACE(header);
    std::string text = header;
    std::string name;
    EXPECT_FALSE(TariffIniFile::parse_section(text.data(), name));
  }
}

}  // namespace
}  // namespace quenby
