#include "tests/config/ini_fixture.h"

// Lines, headers and keys, as a tariff file has them.
namespace quenby {
namespace {

using test::ids;
using test::names;
using test::write_file;
using testing::ElementsAre;
using testing::IsEmpty;

using IniSyntax = test::IniFile;

TEST_F(IniSyntax, AMissingFileIsAFailureThatTouchesNothing) {
  TariffSet set = test::set_of(test::tariff("before"));
  EXPECT_FALSE(TariffIniFile(scratch().file("missing.ini"), true).parse_ini(set));
  EXPECT_THAT(names(set), ElementsAre("before"));
}

TEST_F(IniSyntax, AnEmptyFileOrOneOfBlankLinesSetsNothing) {
  for (const char* text : {"", "\n", "\n\n   \n\t\n", "\r\n\r\n", " ", "\f\v\n"}) {
    SCOPED_TRACE(text);
    TariffSet set;
    EXPECT_TRUE(parse(text, set));
    EXPECT_TRUE(set.empty());
    GlobalSet global;
    EXPECT_TRUE(parse(text, global));
    EXPECT_FALSE(global.has_global || global.has_default);
  }
}

TEST_F(IniSyntax, WhatStandsAroundThePartsIsIgnored) {
  const struct {
    const char* what;
    const char* text;
    const char* name;
  } rows[] = {
      {"blanks", "\n  [  a b  ]  \n\n\t id \t=\t 7 \t\nqueuing_discipline = sfq \n", "a b"},
      {"Windows line ends", "[a]\r\nid=7\r\nqueuing_discipline=sfq\r\n", "a"},
      {"no line end", "[a]\nqueuing_discipline=sfq\nid=7", "a"},
      {"text after a header", "[a] id=9 [b]\nid=7\nqueuing_discipline=sfq\n", "a"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    TariffSet set;
    EXPECT_TRUE(parse(row.text, set));
    EXPECT_THAT(names(set), ElementsAre(row.name));
    EXPECT_THAT(ids(set), ElementsAre(7));
    EXPECT_EQ(set.tariffs()[0].qdisc_str(), "sfq");
  }
}

TEST_F(IniSyntax, KeysAreReadInAnyCase) {
  TariffSet set;
  EXPECT_TRUE(parse("[a]\nDownload_Speed=1000\nUPLOAD_SPEED=2000\nId=7\niP=10.0.0.1\n", set));
  EXPECT_EQ(set.tariffs()[0].download.speed, 125'000);
  EXPECT_EQ(set.tariffs()[0].upload.speed, 250'000);
  EXPECT_EQ(set.tariffs()[0].id, 7);
  EXPECT_EQ(set.tariffs()[0].addresses.size(), 1U);
}

TEST_F(IniSyntax, NamesAndValuesKeepTheirCase) {
  TariffSet set;
  EXPECT_TRUE(parse("[Global]\nqueuing_discipline=SFQ\n[global]\n", set));
  EXPECT_THAT(names(set), ElementsAre("Global", "global"));
  EXPECT_EQ(set.tariffs()[0].qdisc_str(), "none");
  GlobalSet global;
  EXPECT_FALSE(parse("[Global]\n", global));
  EXPECT_FALSE(parse("[defaultQoSIPQueue]\n", global));
}

TEST_F(IniSyntax, TheValueStartsAfterTheFirstEqualsSign) {
  GlobalSet set;
  EXPECT_TRUE(parse("[global]\nwan== a=b \n", set));
  EXPECT_EQ(set.global.wan, "= a=b");
}

TEST_F(IniSyntax, EveryMalformedLineIsAFailure) {
  for (const char* line : {"id",        "=7",       "  = 7",        "=",
                           "id=",       "id=   ",   "id =\t",       "; comment",
                           "# comment", ";id=7",    "# id=7",       "//",
                           "[",         "[]",       "[   ]",        "[b",
                           "[b)",       "]",        "]b[",          "\xef\xbb\xbf[b]",
                           "unknown=1", "wan=eth1", "enabled=true", "i d=7",
                           "ids=7",     "id:7"}) {
    SCOPED_TRACE(line);
    TariffSet set;
    const std::string text = std::string("[a]\nid=4\n") + line + "\n[c]\nid=5\n";
    EXPECT_FALSE(parse(text, set));
    EXPECT_THAT(names(set), ElementsAre("a"));
    EXPECT_THAT(ids(set), ElementsAre(4));
  }
}

TEST_F(IniSyntax, AnEmptyValueIsAFailureEvenWhereItsSetterTakesOne) {
  for (const char* line : {"download_speed=", "upload_burst_rate=  ", "queuing_discipline=\t"}) {
    SCOPED_TRACE(line);
    TariffSet set;
    EXPECT_FALSE(parse("[a]\n" + std::string(line) + "\n", set));
  }
  for (const char* line : {"download_speed=", "wan=", "enabled= "}) {
    SCOPED_TRACE(line);
    GlobalSet set;
    EXPECT_FALSE(parse("[global]\n" + std::string(line) + "\n", set));
  }
}

TEST_F(IniSyntax, AKeyAboveTheFirstHeaderIsAFailure) {
  TariffSet set;
  EXPECT_FALSE(parse("id=7\n[a]\n", set));
  EXPECT_THAT(names(set), IsEmpty());
  GlobalSet global;
  EXPECT_FALSE(parse("enabled=false\n[global]\n", global));
  EXPECT_TRUE(global.global.enabled);
}

TEST_F(IniSyntax, ASecondPieceStartsAfter4095Characters) {
  const std::string line = "ip=10.0.0.1";
  TariffSet set;
  EXPECT_TRUE(parse("[a]\n" + line + std::string(4095 - line.size(), ' ') + "id=7\n", set));
  EXPECT_THAT(ids(set), ElementsAre(7));
  EXPECT_THAT(set.tariffs()[0].address_texts, ElementsAre("10.0.0.1"));
  // One blank less: the first piece takes the "i" of the key along.
  EXPECT_FALSE(parse("[a]\n" + line + std::string(4094 - line.size(), ' ') + "id=7\n", set));
}

TEST_F(IniSyntax, ALineOf4095CharactersIsReadWhole) {
  for (const std::size_t length : {4094U, 4095U, 4096U}) {
    SCOPED_TRACE(length);
    GlobalSet set;
    EXPECT_TRUE(parse("[global]\nwan=" + std::string(length - 4, 'x') + "\nenabled=true\n", set) ==
                (length <= 4095));
    EXPECT_EQ(set.global.wan.size(), std::min<std::size_t>(length, 4095) - 4);
  }
}

TEST_F(IniSyntax, ALongHeaderWithoutItsBracketInTheFirstPieceIsAFailure) {
  TariffSet set;
  EXPECT_TRUE(parse("[" + std::string(4093, 'x') + "]\nid=4\n", set));
  EXPECT_FALSE(parse("[" + std::string(4094, 'x') + "]\nid=4\n", set));
}

TEST_F(IniSyntax, ANulByteEndsTheTextOfItsLine) {
  using namespace std::string_literals;
  TariffSet set;
  EXPECT_TRUE(parse("[a]\nid=7\0garbage\n\0 no key\n"s, set));
  EXPECT_THAT(ids(set), ElementsAre(7));
  EXPECT_FALSE(parse("[b\0]\n"s, set));
  EXPECT_FALSE(parse("[a]\nid\0=7\n"s, set));
  EXPECT_FALSE(
      parse("[a]\nid=\0"
            "7\n"s,
            set));
  EXPECT_TRUE(parse(std::string(10'000, '\0'), set));
}

}  // namespace
}  // namespace quenby
