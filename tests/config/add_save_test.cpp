#include "tests/config/sandbox.h"

// Appending tariffs to the stored file.
namespace quenby {
namespace {

using test::FullDisk;
using test::kDirectory;
using test::kTariffs;
using test::mode_of;
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

TEST_F(AddSave, LeavesNoNewFileOnAFullDisk) {
  const FullDisk disk;
  write_file("/config/tc/filler", std::string(4096, 'x'));
  EXPECT_EXIT(TariffSystemConfig().addSave(set_of(tariff("a", 4))), ExitedWithCode(1),
              Eq("Error: failed to save configuration\n"));
  EXPECT_THAT(names_in(kDirectory), ElementsAre("filler"));
}

// A file that ends 20 bytes before the end of the disk: the beginning of a section has room.
TEST_F(AddSave, TakesBackWhatFitsOnAFullDisk) {
  const FullDisk disk;
  const std::string stored = text_of("a", 4) + std::string(4096 - 20 - 40, '\n');
  for (const std::string& text : {stored, stored + "[b]\nid=5"}) {
    write_file(kTariffs, text);
    EXPECT_EXIT(TariffSystemConfig().addSave(set_of(tariff("c", 6))), ExitedWithCode(1),
                Eq("Error: failed to save configuration\n"));
    EXPECT_EQ(read_file(kTariffs), text);
  }
}

TEST_F(AddSave, FailsOnAReadOnlyDisk) {
  store(text_of("a", 4));
  const ReadOnlyDirectory locked;
  EXPECT_EXIT(TariffSystemConfig().addSave(set_of(tariff("b", 5))), ExitedWithCode(1),
              Eq("Error: failed to save configuration\n"));
  EXPECT_EQ(read_file(kTariffs), text_of("a", 4));
}

TEST_F(AddSave, FailsAtAPipeWithoutWaiting) {
  store("");
  ASSERT_EQ(remove(kTariffs), 0);
  ASSERT_EQ(mkfifo(kTariffs, 0600), 0);
  EXPECT_EXIT(TariffSystemConfig().addSave(set_of(tariff("a", 4))), ExitedWithCode(1),
              Eq("Error: failed to save configuration\n"));
}

TEST_F(AddSave, FailsAtADeviceAndWritesNothingToIt) {
  store("");
  ASSERT_EQ(remove(kTariffs), 0);
  std::filesystem::create_symlink("/dev/null", kTariffs);
  EXPECT_EXIT(TariffSystemConfig().addSave(set_of(tariff("a", 4))), ExitedWithCode(1),
              Eq("Error: failed to save configuration\n"));
}

TEST_F(AddSave, KeepsTheModeOfTheFile) {
  store(text_of("a", 4));
  ASSERT_EQ(chmod(kTariffs, 0600), 0);
  TariffSystemConfig().addSave(set_of(tariff("b", 5)));
  EXPECT_EQ(mode_of(kTariffs), 0600U);
}

TEST_F(AddSave, GivesANewFileTheUsualMode) {
  TariffSystemConfig().addSave(set_of(tariff("b", 5)));
  EXPECT_EQ(mode_of(kTariffs), 0644U);
}

}  // namespace
}  // namespace quenby
