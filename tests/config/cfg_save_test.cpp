#include <stdexcept>

#include "tests/config/stored_files.h"

// Replacing a stored file as a whole.
namespace quenby {
namespace {

using test::expect_failure;
using test::kLongName;
using test::mode_of;
using test::read_file;
using test::set_of;
using test::tariff;
using test::text_of;
using test::write_file;
using testing::ElementsAre;

class CfgSave : public test::StoredFiles {
 protected:
  void save(const TariffSettings& t) const { tariffs().cfgSave(set_of(t)); }
  void expect_refused(const std::string& message) const {
    expect_failure(message, [this] { save(tariff("a", 4)); });
  }
};

TEST_F(CfgSave, IsOfTheFixedFilesUnlessAFolderIsNamed) {
  EXPECT_EQ(GlobalSystemConfig().path(), "/config/tc/tc_global.ini");
  EXPECT_EQ(TariffSystemConfig().path(), "/config/tc/tc_tariff.ini");
}

TEST_F(CfgSave, MakesTheDirectoryWithItsParents) {
  GlobalSet set;
  set.global.wan = "eth1";
  global().cfgSave(set);
  EXPECT_EQ(read_file(global_file()), "[global]\nwan=eth1\nenabled=true\n");
  EXPECT_THAT(names(), ElementsAre("tc_global.ini"));
}

TEST_F(CfgSave, ReplacesTheFileAndLeavesNothingElse) {
  store(text_of("old", 9));
  tariffs().cfgSave(set_of(tariff("b", 5), tariff("a", 4)));
  EXPECT_EQ(stored(), text_of("b", 5) + text_of("a", 4));
  EXPECT_THAT(names(), ElementsAre("tc_tariff.ini"));
}

TEST_F(CfgSave, OverwritesAnOldTemporaryFile) {
  store("");
  write_file(tariff_file() + ".tmp", std::string(10'000, 'x'));
  save(tariff("a", 4));
  EXPECT_EQ(stored(), text_of("a", 4));
  EXPECT_THAT(names(), ElementsAre("tc_tariff.ini"));
}

TEST_F(CfgSave, KeepsTheOldFileUntilTheNewOneIsSynced) {
  store(text_of("old", 9));
  save(tariff("a", 4));
  EXPECT_EQ(seen_by_sync(), "tc_tariff.ini\ntc_tariff.ini.tmp\n" + text_of("old", 9));
}

TEST_F(CfgSave, OfAnEmptySetRemovesTheFile) {
  store(text_of("a", 4));
  for (int times = 0; times < 2; ++times) {
    tariffs().cfgSave(TariffSet());
    EXPECT_FALSE(TariffSystemConfig::exists(folder()));
    EXPECT_TRUE(std::filesystem::exists(folder()));
  }
}

TEST_F(CfgSave, OfAnEmptySetFailsWhenTheFileCannotBeRemoved) {
  std::filesystem::create_directories(tariff_file());
  expect_failure("update configuration:.*Is a directory.*",
                 [this] { tariffs().cfgSave(TariffSet()); });
}

TEST_F(CfgSave, KeepsTheModeOfTheFile) {
  for (const mode_t mode : {0644U, 0600U, 0640U, 0666U}) {
    store(text_of("old", 9));
    ASSERT_EQ(chmod(tariff_file().c_str(), mode), 0);
    save(tariff("a", 4));
    EXPECT_EQ(mode_of(tariff_file()), mode);
  }
}

TEST_F(CfgSave, GivesANewFileTheUsualMode) {
  global().cfgSave(GlobalSet());
  EXPECT_EQ(mode_of(global_file()), 0644U);
  ASSERT_TRUE(std::filesystem::remove(global_file()));
  umask(027);
  global().cfgSave(GlobalSet());
  EXPECT_EQ(mode_of(global_file()), 0640U);
}

TEST_F(CfgSave, GivesANewFileTheUsualModeOverAnOldTemporaryFile) {
  store("");
  write_file(global_file() + ".tmp", "old");
  ASSERT_EQ(chmod((global_file() + ".tmp").c_str(), 0600), 0);
  global().cfgSave(GlobalSet());
  EXPECT_EQ(mode_of(global_file()), 0644U);
}

// Root alone can give a file away; another user is shown that the file stays its own.
TEST_F(CfgSave, KeepsTheOwnerOfTheFile) {
  store(text_of("old", 9));
  [[maybe_unused]] const int given = chown(tariff_file().c_str(), 1234, 4321);
  struct stat before {};
  ASSERT_EQ(stat(tariff_file().c_str(), &before), 0);
  save(tariff("a", 4));
  struct stat after {};
  ASSERT_EQ(stat(tariff_file().c_str(), &after), 0);
  EXPECT_EQ(after.st_uid, before.st_uid);
  EXPECT_EQ(after.st_gid, before.st_gid);
}

TEST_F(CfgSave, NeverWritesThroughALinkUnderItsTemporaryName) {
  store("");
  write_file(file("victim"), "precious");
  std::filesystem::create_symlink(file("victim"), tariff_file() + ".tmp");
  save(tariff("a", 4));
  EXPECT_EQ(read_file(file("victim")), "precious");
  EXPECT_EQ(stored(), text_of("a", 4));
}

TEST_F(CfgSave, WritesWhatTheReaderTakes) {
  TariffSettings t = tariff("a", 4);
  t.addCIDR("10.0.0.1/24");
  t.setQDisc("sfq");
  t.download.setSpeed("1000");
  t.upload.setSpeed("500");
  save(t);
  TariffSet read;
  EXPECT_TRUE(tariffs().parse_ini(read));
  EXPECT_THAT(read.tariffs(), ElementsAre(t));
}

TEST_F(CfgSave, FailsWhenTheTemporaryFileCannotBeOpened) {
  store(text_of("old", 9));
  std::filesystem::create_directories(tariff_file() + ".tmp/full");
  expect_refused("save configuration");
  EXPECT_EQ(stored(), text_of("old", 9));
}

TEST_F(CfgSave, FailsOnAFullDiskWithTheOldFileInPlace) {
  store(text_of("old", 9));
  expect_failure("save configuration", [this] {
    test::make_disk_small();
    save(tariff(kLongName, 4));
  });
  EXPECT_EQ(stored(), text_of("old", 9));
  EXPECT_THAT(names(), ElementsAre("tc_tariff.ini"));
}

TEST_F(CfgSave, FailsWhenTheDirectoryCannotBeMade) {
  write_file(file("config"), "a file");
  expect_refused("copy configuration:[^ ].*");
}

TEST_F(CfgSave, FailsWhenTheFileCannotBeReplaced) {
  std::filesystem::create_directories(tariff_file() + "/full");
  expect_refused("copy configuration:[^ ].*");
  EXPECT_THAT(names(), ElementsAre("tc_tariff.ini"));
}

// A configuration that cannot be written down.
class Unwritable : public TariffSet {
 public:
  bool write(std::ofstream&) const override { throw std::length_error("no room"); }
};

TEST_F(CfgSave, ReportsAnyOtherExceptionWithoutItsText) {
  store(text_of("old", 9));
  expect_failure("copy configuration",
                 [this] { TariffIniFile(tariff_file(), false).cfgSave(Unwritable()); });
  EXPECT_EQ(stored(), text_of("old", 9));
  EXPECT_THAT(names(), ElementsAre("tc_tariff.ini"));
}

}  // namespace
}  // namespace quenby
