#include "config/parse_error.h"

#include <string>
#include <vector>

#include "tests/config/ini_fixture.h"

// Where the reader refuses, and what it says.
namespace quenby {
namespace {

struct Case {
  std::string text;
  Position at;
  std::string reason;
};

class ReadError : public test::IniFile {
 protected:
  template <typename Config>
  std::optional<ParseError> error(const std::string& text) {
    test::write_file(path(), text);
    Config config;
    return TariffIniFile(path(), true).read_ini(config);
  }

  template <typename Config>
  void expect(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.text.substr(0, 80));
      const auto got = error<Config>(c.text);
      ASSERT_TRUE(got);
      EXPECT_EQ(got->file, path());
      EXPECT_EQ(got->at.line, c.at.line);
      EXPECT_EQ(got->at.column, c.at.column);
      EXPECT_EQ(got->reason, c.reason);
    }
  }
};

TEST(ParseErrorText, NamesThePlaceWhereThereIsOne) {
  EXPECT_EQ((ParseError{"/a.ini", {12, 3}, "why"}).text(), "/a.ini:12:3: why");
  EXPECT_EQ((ParseError{"/a.ini", {}, "is a directory"}).text(), "/a.ini: is a directory");
}

TEST_F(ReadError, IsNoneForAGoodFile) {
  EXPECT_FALSE(error<TariffConfig>(""));
  EXPECT_FALSE(error<TariffConfig>("[a]\nid=4\nip=10.0.0.1/24\n[b]\nid=5"));
  EXPECT_FALSE(error<GlobalSet>(" [global] text\nwan=eth1\n\n[defaultqosipqueue]\n"));
}

TEST_F(ReadError, OfALine) {
  const std::string no_equals = "no \"=\" in this line";
  expect<TariffSet>({
      {"hello", {1, 1}, no_equals},
      {"[a]\nid=4\n\n\t hello=\n", {4, 9}, "no value after \"=\""},
      {"[a]\nid=4\r\n\r\n  hello\r\n", {4, 3}, no_equals},
      {"[a]\n  id = \t \n", {2, 7}, "no value after \"=\""},
      {"[a]\n =4\n", {2, 2}, "no key before \"=\""},
      {"[a]\n=\n", {2, 1}, "no key before \"=\""},
      {"# text\n", {1, 1}, "comments are not allowed"},
      {"[a]\n\n ; text\n", {3, 2}, "comments are not allowed"},
      {"\xef\xbb\xbf[a]\n", {1, 1}, no_equals},
      {std::string("[a]\nid\0=4\n", 10), {2, 1}, no_equals},
      {std::string("\0\0\n\0\nx", 6), {3, 1}, no_equals},
  });
}

TEST_F(ReadError, OfAHeader) {
  expect<TariffSet>({
      {"[a\n", {1, 1}, "section header without \"]\""},
      {"[a]\n  [\n", {2, 3}, "section header without \"]\""},
      {"[]", {1, 1}, "section header without a name"},
      {"\n [ \t] b\n", {2, 2}, "section header without a name"},
  });
}

TEST_F(ReadError, OfALongLineCountsItsPiecesInOneLine) {
  const std::string rest = " (the rest of a line longer than 4095 bytes)";
  const std::string blanks(4095, ' ');
  expect<TariffSet>({
      {"[a]\n" + blanks + "x\n", {2, 4096}, "no \"=\" in this line" + rest},
      {"[a]\n" + blanks + blanks + " id=x\n",
       {2, 8195},
       "\"x\" is not a class number from 1 to 15999" + rest},
      {"[a]\n" + blanks + "\nx\n", {3, 1}, "no \"=\" in this line"},
      {std::string(5000, 'x'), {1, 1}, "no \"=\" in this line"},
      {"id=" + std::string(5000, 'x'), {1, 1}, "key before the first section header"},
      {"[a]\n[" + std::string(4094, 'x') + "]\n", {2, 1}, "section header without \"]\""},
  });
}

TEST_F(ReadError, OfATariffKey) {
  expect<TariffSet>({
      {"id=4\n[a]\n", {1, 1}, "key before the first section header"},
      {"[a]\n  wan=eth1\n", {2, 3}, "unknown key \"wan\" in this section"},
      {"[a]\nI\td=4\n", {2, 1}, "unknown key \"i\\x09d\" in this section"},
      {"[a]\n# id=4\n", {2, 1}, "unknown key \"# id\" in this section"},
      {"[a]\n" + std::string(70, 'K') + "=4\n",
       {2, 1},
       "unknown key \"" + std::string(64, 'k') + "...\" in this section"},
  });
}

TEST_F(ReadError, OfATariffValue) {
  const std::string no_id = " is not a class number from 1 to 15999";
  const std::string no_rate = " is not a number of kbit/s below 9e15";
  const std::string no_size = " is not a number of bytes, 0 or more";
  expect<TariffSet>({
      {"[a]\nid=0\n", {2, 4}, "\"0\"" + no_id},
      {"[a]\nid=-3\n", {2, 4}, "\"-3\"" + no_id},
      {"[a]\n id\t=  16000 \n", {2, 8}, "\"16000\"" + no_id},
      {"[a]\nid=four five\n", {2, 4}, "\"four five\"" + no_id},
      {"[a]\nip=10.0.0.1\nip=10.0.0\n", {3, 4}, "\"10.0.0\" is not an IPv4 address"},
      {"[a]\nip= 2001:db8::1\n", {2, 5}, "\"2001:db8::1\" is not an IPv4 address"},
      {"[a]\nip=/24\n", {2, 4}, "\"/24\" is not an IPv4 address"},
      {"[a]\ndownload_speed=1e300\n", {2, 16}, "\"1e300\"" + no_rate},
      {"[a]\nUpload_Speed=nan\n", {2, 14}, "\"nan\"" + no_rate},
      {"[a]\ndownload_burst_rate=inf\n", {2, 21}, "\"inf\"" + no_rate},
      {"[a]\nupload_burst_rate=9e18\n", {2, 19}, "\"9e18\"" + no_rate},
      {"[a]\ndownload_burst_size=-1\n", {2, 21}, "\"-1\"" + no_size},
      {"[a]\nupload_burst_size=big\n", {2, 19}, "\"big\"" + no_size},
      {"[a]\naggregation=ten\n", {2, 13}, "\"ten\" is not a number of 0 or more"},
      {"[a]\naggregation=-1\n", {2, 13}, "\"-1\" is not a number of 0 or more"},
  });
}

TEST_F(ReadError, OfASectionWithoutANumberIsAtItsHeader) {
  expect<TariffConfig>({
      {"[a]\nid=4\n\n [ gold ]\nip=10.0.0.1\n[b]\nid=5\n", {4, 4}, "section \"gold\" has no id"},
      {"[a]\nid=4\n[b]\n", {3, 2}, "section \"b\" has no id"},
      {"[\x1b[2J]\n[b]\nid=5\n", {1, 2}, "section \"\\x1b[2J\" has no id"},
  });
}

TEST_F(ReadError, IsTheFirstOne) {
  expect<TariffConfig>({
      {"[a]\nhello\nworld\n", {2, 1}, "no \"=\" in this line"},
      {"[a]\nid=4\n[b]\nid=0\n", {4, 4}, "\"0\" is not a class number from 1 to 15999"},
  });
}

TEST_F(ReadError, OfTheGlobalFile) {
  const std::string known = ": only [global] and [defaultqosipqueue] are allowed here";
  const std::string no_rate = " is not a number of kbit/s below 9e15";
  expect<GlobalSet>({
      {"wan=eth1\n", {1, 1}, "key before the first section header"},
      {"[Global]\n", {1, 2}, "unknown section \"Global\"" + known},
      {"[global]\n[ gold ]\n", {2, 3}, "unknown section \"gold\"" + known},
      {"[global]\nid=4\n", {2, 1}, "unknown key \"id\" in this section"},
      {"[defaultqosipqueue]\nwan=eth1\n", {2, 1}, "unknown key \"wan\" in this section"},
      {"[global]\nenabled=TRUE\n", {2, 9}, "\"TRUE\" is not \"true\" or \"false\""},
      {"[global]\ndownload_speed=1e300\n", {2, 16}, "\"1e300\"" + no_rate},
      {"[global]\nupload_speed=1e300\n", {2, 14}, "\"1e300\"" + no_rate},
      {"[defaultqosipqueue]\ndownload_speed=nan\n", {2, 16}, "\"nan\"" + no_rate},
      {"[defaultqosipqueue]\nupload_speed=1e300\n", {2, 14}, "\"1e300\"" + no_rate},
  });
}

TEST_F(ReadError, OfAWholeFileHasNoLine) {
  TariffSet set;
  const auto reason = [&set](const std::string& file, bool command_line) {
    const auto error = TariffIniFile(file, command_line).read_ini(set);
    return error ? error->text() : "none";
  };
  const std::string missing = scratch().file("missing");
  EXPECT_EQ(reason(missing, true), missing + ": cannot be opened: No such file or directory");
  EXPECT_EQ(reason(scratch().path(), true), scratch().path() + ": is a directory");
  EXPECT_EQ(reason("/dev/null", true), "/dev/null: is not a regular file");
  ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
  EXPECT_EQ(reason(path(), false), path() + ": is not a regular file");
  // The kernel calls it a file, and fails to read it at its beginning.
  EXPECT_EQ(reason("/proc/self/mem", false), "/proc/self/mem: cannot be read: Input/output error");
}

TEST_F(ReadError, AgreesWithWhatTheParseSays) {
  for (const char* text : {"", "[a]\n", "[a]\nid=4\n", "[a]\nid\n", "id=4\n"}) {
    SCOPED_TRACE(text);
    TariffConfig config;
    EXPECT_EQ(parse(text, config), !error<TariffConfig>(text));
  }
}

TEST_F(ReadError, ASectionIsFoundAtItsLastHeader) {
  test::write_file(path(), "[a]\nid=4\n  [  a ] x\n[b]\n[a\n");
  const TariffIniFile file(path(), true);
  EXPECT_EQ(file.find_section("a"), (Position{3, 6}));
  EXPECT_EQ(file.find_section("b"), (Position{4, 2}));
  EXPECT_EQ(file.find_section("c"), Position{});
  EXPECT_EQ(TariffIniFile(scratch().file("missing"), true).find_section("a"), Position{});
}

}  // namespace
}  // namespace quenby
