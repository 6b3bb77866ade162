#include <stdexcept>

#include "tests/config/sandbox.h"

// Replacing a stored file as a whole.
namespace quenby {
namespace {

using test::FullDisk;
using test::kDirectory;
using test::kGlobal;
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
using testing::MatchesRegex;

using CfgSave = test::StoredFiles;

TEST_F(CfgSave, MakesTheDirectoryWithItsParents) {
  ASSERT_FALSE(std::filesystem::exists("/config"));
  GlobalSet set;
  set.global.wan = "eth1";
  GlobalSystemConfig().cfgSave(set);
  EXPECT_EQ(read_file(kGlobal), "[global]\nwan=eth1\nenabled=true\n");
  EXPECT_THAT(names_in(kDirectory), ElementsAre("tc_global.ini"));
}

TEST_F(CfgSave, ReplacesTheFileAndLeavesNothingBehind) {
  store(text_of("old", 9));
  TariffSystemConfig().cfgSave(set_of(tariff("b", 5), tariff("a", 4)));
  EXPECT_EQ(read_file(kTariffs), text_of("b", 5) + text_of("a", 4));
  EXPECT_THAT(names_in(kDirectory), ElementsAre("tc_tariff.ini"));
}

TEST_F(CfgSave, OverwritesAnOldTemporaryFile) {
  store("");
  write_file("/config/tc/tc_tariff.ini.tmp", std::string(10'000, 'x'));
  TariffSystemConfig().cfgSave(set_of(tariff("a", 4)));
  EXPECT_EQ(read_file(kTariffs), text_of("a", 4));
  EXPECT_THAT(names_in(kDirectory), ElementsAre("tc_tariff.ini"));
}

TEST_F(CfgSave, KeepsTheOldFileUntilTheNewOneIsSynced) {
  store(text_of("old", 9));
  TariffSystemConfig().cfgSave(set_of(tariff("a", 4)));
  EXPECT_EQ(seen_by_sync(), "tc_tariff.ini\ntc_tariff.ini.tmp\n" + text_of("old", 9));
}

TEST_F(CfgSave, OfAnEmptySetRemovesTheFile) {
  store(text_of("a", 4));
  EXPECT_TRUE(TariffSystemConfig::exists());
  TariffSystemConfig().cfgSave(TariffSet());
  EXPECT_FALSE(TariffSystemConfig::exists());
  EXPECT_TRUE(std::filesystem::exists(kDirectory));
  TariffSystemConfig().cfgSave(TariffSet());
  EXPECT_FALSE(TariffSystemConfig::exists());
}

TEST_F(CfgSave, OfAnEmptySetFailsWhenTheFileCannotBeRemoved) {
  store(text_of("a", 4));
  const ReadOnlyDirectory locked;
  EXPECT_EXIT(TariffSystemConfig().cfgSave(TariffSet()), ExitedWithCode(1),
              MatchesRegex("Error: failed to update configuration:.*Read-only file system.*\n"));
  EXPECT_EQ(read_file(kTariffs), text_of("a", 4));
}

TEST_F(CfgSave, KeepsTheModeOfTheFile) {
  for (const mode_t mode : {0644U, 0600U, 0640U, 0666U}) {
    store(text_of("old", 9));
    ASSERT_EQ(chmod(kTariffs, mode), 0);
    TariffSystemConfig().cfgSave(set_of(tariff("a", 4)));
    EXPECT_EQ(mode_of(kTariffs), mode);
  }
}

TEST_F(CfgSave, GivesANewFileTheUsualMode) {
  GlobalSystemConfig().cfgSave(GlobalSet());
  EXPECT_EQ(mode_of(kGlobal), 0644U);
  ASSERT_EQ(remove(kGlobal), 0);
  umask(027);
  GlobalSystemConfig().cfgSave(GlobalSet());
  EXPECT_EQ(mode_of(kGlobal), 0640U);
}

TEST_F(CfgSave, GivesANewFileTheUsualModeOverAnOldTemporaryFile) {
  store("");
  write_file("/config/tc/tc_global.ini.tmp", "old");
  ASSERT_EQ(chmod("/config/tc/tc_global.ini.tmp", 0600), 0);
  GlobalSystemConfig().cfgSave(GlobalSet());
  EXPECT_EQ(mode_of(kGlobal), 0644U);
}

// Root alone can give a file away; another user is shown that the file stays its own.
TEST_F(CfgSave, KeepsTheOwnerOfTheFile) {
  store(text_of("old", 9));
  [[maybe_unused]] const int given = chown(kTariffs, 1234, 4321);
  struct stat before {};
  ASSERT_EQ(stat(kTariffs, &before), 0);
  TariffSystemConfig().cfgSave(set_of(tariff("a", 4)));
  struct stat after {};
  ASSERT_EQ(stat(kTariffs, &after), 0);
  EXPECT_EQ(after.st_uid, before.st_uid);
  EXPECT_EQ(after.st_gid, before.st_gid);
}

TEST_F(CfgSave, NeverWritesThroughALinkUnderItsTemporaryName) {
  store("");
  write_file("/config/victim", "precious");
  std::filesystem::create_symlink("/config/victim", "/config/tc/tc_tariff.ini.tmp");
  TariffSystemConfig().cfgSave(set_of(tariff("a", 4)));
  EXPECT_EQ(read_file("/config/victim"), "precious");
  EXPECT_EQ(read_file(kTariffs), text_of("a", 4));
}

TEST_F(CfgSave, FailsOnAReadOnlyDisk) {
  store(text_of("old", 9));
  const ReadOnlyDirectory locked;
  EXPECT_EXIT(TariffSystemConfig().cfgSave(set_of(tariff("a", 4))), ExitedWithCode(1),
              Eq("Error: failed to save configuration\n"));
  EXPECT_EQ(read_file(kTariffs), text_of("old", 9));
}

TEST_F(CfgSave, WritesWhatTheReaderTakes) {
  TariffSettings t = tariff("a", 4);
  t.addCIDR("10.0.0.1/24");
  t.setQDisc("sfq");
  t.download.setSpeed("1000");
  t.upload.setSpeed("500");
  TariffSystemConfig().cfgSave(set_of(t));
  TariffSet read;
  EXPECT_TRUE(TariffSystemConfig().parse_ini(read));
  EXPECT_THAT(read.tariffs(), ElementsAre(t));
}

TEST_F(CfgSave, FailsWhenTheTemporaryFileCannotBeOpened) {
  store(text_of("old", 9));
  std::filesystem::create_directories("/config/tc/tc_tariff.ini.tmp/full");
  EXPECT_EXIT(TariffSystemConfig().cfgSave(set_of(tariff("a", 4))), ExitedWithCode(1),
              Eq("Error: failed to save configuration\n"));
  EXPECT_EQ(read_file(kTariffs), text_of("old", 9));
}

TEST_F(CfgSave, FailsOnAFullDiskWithTheOldFileInPlace) {
  const FullDisk disk;
  write_file(kTariffs, text_of("old", 9));
  EXPECT_EXIT(TariffSystemConfig().cfgSave(set_of(tariff("a", 4))), ExitedWithCode(1),
              Eq("Error: failed to save configuration\n"));
  EXPECT_EQ(read_file(kTariffs), text_of("old", 9));
  EXPECT_THAT(names_in(kDirectory), ElementsAre("tc_tariff.ini"));
}

TEST_F(CfgSave, FailsWhenTheDirectoryCannotBeMade) {
  write_file("/config", "a file");
  EXPECT_EXIT(GlobalSystemConfig().cfgSave(GlobalSet()), ExitedWithCode(1),
              MatchesRegex("Error: failed to copy configuration:[^ ].*\n"));
}

TEST_F(CfgSave, FailsWhenTheFileCannotBeReplaced) {
  std::filesystem::create_directories("/config/tc/tc_tariff.ini/full");
  EXPECT_EXIT(TariffSystemConfig().cfgSave(set_of(tariff("a", 4))), ExitedWithCode(1),
              MatchesRegex("Error: failed to copy configuration:[^ ].*\n"));
  EXPECT_THAT(names_in(kDirectory), ElementsAre("tc_tariff.ini"));
}

// A configuration that cannot be written down.
class Unwritable : public TariffSet {
 public:
  bool write(std::ofstream&) const override { throw std::length_error("no room"); }
};

TEST_F(CfgSave, ReportsAnyOtherExceptionWithoutItsText) {
  store(text_of("old", 9));
  EXPECT_EXIT(TariffIniFile(kTariffs, false).cfgSave(Unwritable()), ExitedWithCode(1),
              Eq("Error: failed to copy configuration\n"));
  EXPECT_EQ(read_file(kTariffs), text_of("old", 9));
  EXPECT_THAT(names_in(kDirectory), ElementsAre("tc_tariff.ini"));
}

}  // namespace
}  // namespace quenby
