#include "config/tariff_ini_file.h"
#include "model/global_set.h"
#include "model/tariff_config.h"
#include "tests/manual/source_text.h"

// The program takes the examples of the files' manual page as stored files.
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

}  // namespace
}  // namespace quenby
