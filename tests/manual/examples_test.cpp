#include "config/tariff_ini_file.h"
#include "model/global_set.h"
#include "model/tariff_config.h"
#include "tests/manual/source_text.h"

// The program takes the examples of the files' manual page as stored files, and the example files
// as those that its options name.
namespace quenby {
namespace {

std::vector<std::string> examples() {
  std::vector<std::string> blocks;
  bool inside = false;
  for (const std::string& line :
       test::part_of_page("docs/man/quenby.ini.5", ".Sh EXAMPLES", {".Sh"})) {
    if (line == ".Ed") inside = false;
    if (inside) blocks.back() += line + "\n";
    if (line.rfind(".Bd ", 0) == 0) {
      blocks.emplace_back();
      inside = true;
    }
  }
  return blocks;
}

bool accepted(const std::string& text, ShaperConfigInterface& set) {
  const test::ScratchDirectory directory;
  test::write_file(directory.file("example.ini"), text);
  return TariffIniFile(directory.file("example.ini"), false).parse_ini(set);
}

TEST(Examples, AreAccepted) {
  const std::vector<std::string> blocks = examples();
  ASSERT_EQ(blocks.size(), 3U);
  GlobalSet global;
  EXPECT_TRUE(accepted(blocks[0], global));
  EXPECT_TRUE(global.has_global && global.has_default && global.global.enabled);
  for (const std::size_t tariff : {1U, 2U}) {
    TariffConfig tariffs;
    EXPECT_TRUE(accepted(blocks[tariff], tariffs));
    EXPECT_TRUE(tariffs.checkID());
    EXPECT_EQ(tariffs.tariffs().size(), 1U);
  }
}

TEST(Examples, TheBurstIsTheOneThatThePageNames) {
  const std::vector<std::string> blocks = examples();
  ASSERT_EQ(blocks.size(), 3U);
  TariffConfig tariffs;
  ASSERT_TRUE(accepted(blocks[2], tariffs));
  EXPECT_EQ(tariffs.tariffs().at(0).download.burstSize(), 125'000);
}

// An example file without its comments.
std::string example_file(const std::string& name) {
  std::string text;
  for (const std::string& line : test::source_lines("examples/" + name)) {
    if (line.rfind('#', 0) != 0) text += line + "\n";
  }
  return text;
}

std::vector<std::string> subscribers(const std::string& file) {
  const std::string text = example_file(file);
  EXPECT_EQ(text.find("id="), std::string::npos) << "the program hands out the numbers";
  TariffSet set;
  EXPECT_TRUE(accepted(text, set)) << file;
  std::vector<std::string> names;
  for (const TariffSettings& tariff : set.tariffs()) names.push_back(tariff.name);
  return names;
}

TEST(ExampleFiles, AreAccepted) {
  GlobalSet global;
  EXPECT_TRUE(accepted(example_file("tc_global.ini.example"), global));
  EXPECT_TRUE(global.has_global && global.has_default && global.global.enabled);
  const std::vector<std::string> all = {"4711 Hill Farm", "4712 Miller", "4713 School",
                                        "4714 Weaver"};
  EXPECT_EQ(subscribers("tc_tariff.ini.example"), all);
  EXPECT_EQ(subscribers("tariff_update.ini"), std::vector<std::string>{all.front()});
  EXPECT_EQ(subscribers("tariff_add.ini"), std::vector<std::string>{"4715 Library"});
}

TEST(ExampleFiles, AreRefusedWithTheirComments) {
  std::string text;
  for (const std::string& line : test::source_lines("examples/tc_tariff.ini.example"))
    text += line + "\n";
  TariffSet set;
  EXPECT_FALSE(accepted(text, set));
}

}  // namespace
}  // namespace quenby
