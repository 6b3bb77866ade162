#include "tests/config/sandbox.h"

// Appending tariffs to the stored file.
namespace quenby {
namespace {

using test::FullDisk;
using test::kDirectory;
using test::kTariffs;
using test::names_in;
using test::read_file;
using test::set_of;
using test::tariff;
using test::text_of;
using test::write_file;
using testing::ElementsAre;
using testing::Eq;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::MatchesRegex;

using AddSave = test::StoredFiles;

TEST_F(AddSave, MakesAMissingFileWithTheNewSections) {
  TariffSystemConfig().addSave(set_of(tariff("b", 5), tariff("a", 4)));
  EXPECT_EQ(read_file(kTariffs), text_of("b", 5) + text_of("a", 4));
}

TEST_F(AddSave, AppendsInPlace) {
  store(text_of("a", 4));
  std::filesystem::create_hard_link(kTariffs, "/tmp/same");
  TariffSystemConfig().addSave(set_of(tariff("b", 5)));
  EXPECT_EQ(read_file("/tmp/same"), text_of("a", 4) + text_of("b", 5));
  EXPECT_THAT(names_in(kDirectory), ElementsAre("tc_tariff.ini"));
  EXPECT_THAT(seen_by_sync(), IsEmpty());
}

TEST_F(AddSave, EndsAnUnfinishedLineFirst) {
  store("[a]\nid=4");
  TariffSystemConfig().addSave(set_of(tariff("b", 5)));
  EXPECT_EQ(read_file(kTariffs), "[a]\nid=4\n" + text_of("b", 5));
}

TEST_F(AddSave, AddsNoLineEndToAnEmptyFile) {
  store("");
  TariffSystemConfig().addSave(set_of(tariff("b", 5)));
  EXPECT_EQ(read_file(kTariffs), text_of("b", 5));
}

TEST_F(AddSave, FailsWhenTheFileCannotBeOpened) {
  std::filesystem::create_directories(kTariffs);
  EXPECT_EXIT(TariffSystemConfig().addSave(set_of(tariff("a", 4))), ExitedWithCode(1),
              Eq("Error: failed to save configuration\n"));
}

TEST_F(AddSave, FailsWhenTheDirectoryCannotBeMade) {
  write_file("/config", "a file");
  EXPECT_EXIT(TariffSystemConfig().addSave(set_of(tariff("a", 4))), ExitedWithCode(1),
              MatchesRegex("Error: failed to save configuration:[^ ].*\n"));
}

TEST_F(AddSave, FailsOnAFullDisk) {
  const FullDisk disk;
  write_file("/config/tc/filler", std::string(4096, 'x'));
  EXPECT_EXIT(TariffSystemConfig().addSave(set_of(tariff("a", 4))), ExitedWithCode(1),
              Eq("Error: failed to save configuration\n"));
}

}  // namespace
}  // namespace quenby
