#include "ctl/check_file.h"

#include <gmock/gmock.h>

#include "config/read_config.h"
#include "ctl/status.h"
#include "tests/config/ini_generator.h"
#include "tests/support/files.h"

// Errors past the first one, each in the reader's own words.
namespace quenby {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

class CheckFile : public ::testing::Test {
 protected:
  Lines tariff_errors(const std::string& text, FileKind kind = FileKind::named) const {
    test::write_file(path(), text);
    return lines(check_tariff_file(path(), kind).errors);
  }
  Lines global_errors(const std::string& text) const {
    test::write_file(path(), text);
    return lines(check_global_file(path(), FileKind::named).errors);
  }
  std::string path() const { return directory_.file("a.ini"); }

 private:
  static Lines lines(const Findings& findings) {
    Lines lines;
    for (const Finding& f : findings)
      lines.push_back(std::to_string(f.at.line) + ":" + std::to_string(f.at.column) + " " + f.text);
    return lines;
  }

  test::ScratchDirectory directory_;
};

TEST_F(CheckFile, GoodFilesHaveNoErrors) {
  EXPECT_THAT(tariff_errors(""), IsEmpty());
  EXPECT_THAT(tariff_errors("[a]\n"), IsEmpty());
  EXPECT_THAT(tariff_errors("[a]\nid=4\n[a]\nid=5\n", FileKind::stored), IsEmpty());
  EXPECT_THAT(global_errors("[global]\nenabled=true\n"), IsEmpty());
}

TEST_F(CheckFile, EachRefusedLineIsAnError) {
  EXPECT_THAT(tariff_errors("[a]\nip=10\nhello\n[b]\nspeed=1\nid=0\n"),
              ElementsAre("2:4 \"10\" is not an IPv4 address", "3:1 no \"=\" in this line",
                          "5:1 unknown key \"speed\" in this section",
                          "6:4 \"0\" is not a class number from 1 to 15999"));
}

TEST_F(CheckFile, ARefusedHeaderTakesItsSectionWithIt) {
  EXPECT_THAT(
      global_errors("[globe]\nx=1\ny\n[global]\nenabled=yes\n"),
      ElementsAre("1:2 unknown section \"globe\": only [global] and [defaultqosipqueue] are "
                  "allowed here",
                  "5:9 \"yes\" is not \"true\" or \"false\""));
  EXPECT_THAT(tariff_errors("[a\nx\n[b]\n[]\n"),
              ElementsAre("1:1 section header without \"]\"", "4:1 section header without a name"));
}

TEST_F(CheckFile, KeysAboveTheFirstHeaderAreOneError) {
  EXPECT_THAT(tariff_errors("ip=10.0.0.1\nid=4\n[a]\nz\n"),
              ElementsAre("1:1 key before the first section header", "4:1 no \"=\" in this line"));
}

TEST_F(CheckFile, WhatShowsInTheWholeListComesAfterwards) {
  EXPECT_THAT(tariff_errors("[a]\n[b]\nq\n[a]\n"),
              ElementsAre("3:1 no \"=\" in this line", "4:2 section \"a\" is in the file twice"));
  EXPECT_THAT(tariff_errors("[a]\n[b]\nid=4\n[c]\n", FileKind::stored),
              ElementsAre("1:2 section \"a\" has no id", "4:2 section \"c\" has no id"));
}

TEST_F(CheckFile, TwentyErrorsAreEnough) {
  std::string text = "[a]\n";
  for (int i = 0; i < 30; ++i) text += "wrong\n";
  EXPECT_EQ(tariff_errors(text).size(), 20U);
}

TEST_F(CheckFile, AFileThatIsNoneIsAnError) {
  const Findings errors = check_tariff_file(path(), FileKind::named).errors;
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_EQ(errors.front().text, "cannot be opened: No such file or directory");
  EXPECT_EQ(errors.front().at, Position());
}

// The first error is the one that the program's own reading gives, of the file itself.
TEST_F(CheckFile, TheFirstErrorIsTheReaders) {
  test::IniGenerator generator;
  int refused = 0;
  for (int i = 0; i < 500; ++i) {
    test::write_file(path(), generator.next(i));
    TariffSet tariffs;
    GlobalSet global;
    const auto tariff_error = read_named(path(), tariffs);
    const auto global_error = read_named(path(), global);
    const Findings tariff_findings = check_tariff_file(path(), FileKind::named).errors;
    const Findings global_findings = check_global_file(path(), FileKind::named).errors;
    ASSERT_EQ(tariff_error.has_value(), !tariff_findings.empty()) << i;
    ASSERT_EQ(global_error.has_value(), !global_findings.empty()) << i;
    if (!tariff_error) continue;
    ++refused;
    ASSERT_EQ(tariff_findings.front().text, tariff_error->reason) << i;
    // Where a pipe or a file says nothing more, the text in memory does.
    ASSERT_EQ(tariff_findings.front().at, tariff_error->at) << i;
  }
  EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace quenby
