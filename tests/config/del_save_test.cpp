#include <array>
#include <cstdio>

#include "tests/config/sandbox.h"

// Taking tariffs out of the stored file.
namespace quenby {
namespace {

using test::kDirectory;
using test::kTariffs;
using test::names_in;
using test::read_file;
using test::ReadOnlyDirectory;
using test::set_of;
using test::tariff;
using test::text_of;
using test::write_file;
using testing::ElementsAre;
using testing::Eq;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::MatchesRegex;

using DelSave = test::StoredFiles;

TEST_F(DelSave, TakesTheNamedSectionsOut) {
  store(text_of("a", 4) + text_of("b", 5) + text_of("c", 6));
  TariffSystemConfig().delSave(set_of(tariff("a"), tariff("c"), tariff("x")));
  EXPECT_EQ(read_file(kTariffs), text_of("b", 5));
  EXPECT_THAT(names_in("/tmp"), IsEmpty());
  EXPECT_THAT(names_in(kDirectory), ElementsAre("tc_tariff.ini"));
}

TEST_F(DelSave, CopiesOverTheFileInPlace) {
  store(text_of("a", 4) + text_of("b", 5));
  std::filesystem::create_hard_link(kTariffs, "/config/same");
  TariffSystemConfig().delSave(set_of(tariff("a")));
  EXPECT_EQ(read_file("/config/same"), text_of("b", 5));
}

TEST_F(DelSave, KeepsTheModeOfTheFile) {
  namespace fs = std::filesystem;
  store(text_of("a", 4) + text_of("b", 5));
  fs::permissions(kTariffs, static_cast<fs::perms>(0644));
  TariffSystemConfig().delSave(set_of(tariff("a")));
  EXPECT_EQ(fs::status(kTariffs).permissions(), static_cast<fs::perms>(0644));
}

TEST_F(DelSave, OfTheOnlyTariffRemovesTheFile) {
  store(text_of("a", 4));
  TariffSystemConfig().delSave(set_of(tariff("a")));
  EXPECT_FALSE(TariffSystemConfig::exists());
  EXPECT_THAT(names_in("/tmp"), IsEmpty());
}

TEST_F(DelSave, FailsWithoutAFile) {
  EXPECT_EXIT(TariffSystemConfig().delSave(set_of(tariff("a"))), ExitedWithCode(1),
              Eq("Error: failed to update configuration\n"));
  EXPECT_THAT(names_in("/tmp"), IsEmpty());
}

TEST_F(DelSave, FailsAtAMalformedHeaderWithTheFileUnchanged) {
  store(text_of("a", 4) + "[]\n");
  EXPECT_EXIT(TariffSystemConfig().delSave(set_of(tariff("a"))), ExitedWithCode(1),
              Eq("Error: failed to update configuration\n"));
  EXPECT_EQ(read_file(kTariffs), text_of("a", 4) + "[]\n");
  EXPECT_THAT(names_in("/tmp"), IsEmpty());
}

TEST_F(DelSave, FailsWhenTheFileCannotBeOverwritten) {
  store(text_of("a", 4) + text_of("b", 5));
  const ReadOnlyDirectory locked;
  EXPECT_EXIT(TariffSystemConfig().delSave(set_of(tariff("a"))), ExitedWithCode(1),
              MatchesRegex("Error: failed to update configuration:[^ ].*\n"));
  EXPECT_EQ(read_file(kTariffs), text_of("a", 4) + text_of("b", 5));
  EXPECT_THAT(names_in("/tmp"), IsEmpty());
}

// Links to `victim` under the temporary names whose last digit is below `digits`.
void plant_links(const std::string& victim, int digits) {
  for (int i = 0; i < 65'536; ++i) {
    if (i % 16 >= digits) continue;
    std::array<char, 32> name{};
    std::snprintf(name.data(), name.size(), "/tmp/kavo-qos-shaper-%04x", i);
    std::filesystem::create_symlink(victim, name.data());
  }
}

TEST_F(DelSave, NeverWritesThroughALinkUnderItsTemporaryName) {
  store(text_of("a", 4) + text_of("b", 5));
  write_file("/config/victim", "precious");
  plant_links("/config/victim", 14);
  TariffSystemConfig().delSave(set_of(tariff("a")));
  EXPECT_EQ(read_file(kTariffs), text_of("b", 5));
  EXPECT_EQ(read_file("/config/victim"), "precious");
  EXPECT_EQ(names_in("/tmp").size(), 4096U * 14);
}

TEST_F(DelSave, FailsWhenEveryTemporaryNameIsTaken) {
  store(text_of("a", 4) + text_of("b", 5));
  write_file("/config/victim", "precious");
  plant_links("/config/victim", 16);
  EXPECT_EXIT(TariffSystemConfig().delSave(set_of(tariff("a"))), ExitedWithCode(1),
              MatchesRegex("Error: failed to update configuration:[^ ].*\n"));
  EXPECT_EQ(read_file(kTariffs), text_of("a", 4) + text_of("b", 5));
  EXPECT_EQ(read_file("/config/victim"), "precious");
}

}  // namespace
}  // namespace quenby
