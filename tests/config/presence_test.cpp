#include "tests/config/sandbox.h"

// Whether a stored file is there, and removing it.
namespace quenby {
namespace {

using test::kGlobal;
using test::kTariffs;
using test::ReadOnlyDirectory;
using test::write_file;
using testing::ExitedWithCode;
using testing::MatchesRegex;

using Presence = test::StoredFiles;

TEST_F(Presence, IsFalseForAMissingFileOrDirectory) {
  EXPECT_FALSE(GlobalSystemConfig::exists());
  EXPECT_FALSE(TariffSystemConfig::exists());
  std::filesystem::create_directories("/config/tc");
  EXPECT_FALSE(GlobalSystemConfig::exists());
  EXPECT_FALSE(TariffSystemConfig::exists());
}

TEST_F(Presence, IsTestedForEachFileByItself) {
  store("");
  EXPECT_TRUE(TariffSystemConfig::exists());
  EXPECT_FALSE(GlobalSystemConfig::exists());
  write_file(kGlobal, "");
  EXPECT_TRUE(GlobalSystemConfig::exists());
}

TEST_F(Presence, IsTrueForADirectoryAtThePath) {
  std::filesystem::create_directories(kGlobal);
  std::filesystem::create_directories(kTariffs);
  EXPECT_TRUE(GlobalSystemConfig::exists());
  EXPECT_TRUE(TariffSystemConfig::exists());
}

TEST_F(Presence, IsFalseWhereTheStatusCannotBeRead) {
  write_file("/config", "a file");
  EXPECT_FALSE(GlobalSystemConfig::exists());
  EXPECT_FALSE(TariffSystemConfig::exists());
}

TEST_F(Presence, CleanRemovesTheFile) {
  store("[a]\n");
  write_file(kGlobal, "[global]\n");
  EXPECT_TRUE(TariffSystemConfig::clean());
  EXPECT_FALSE(TariffSystemConfig::exists());
  EXPECT_TRUE(GlobalSystemConfig::exists());
  EXPECT_TRUE(GlobalSystemConfig::clean());
  EXPECT_FALSE(GlobalSystemConfig::exists());
}

TEST_F(Presence, CleanFailsWithoutAFile) {
  EXPECT_FALSE(GlobalSystemConfig::clean());
  EXPECT_FALSE(TariffSystemConfig::clean());
  std::filesystem::create_directories(kTariffs);
  EXPECT_FALSE(TariffSystemConfig::clean());
  EXPECT_TRUE(TariffSystemConfig::exists());
}

TEST_F(Presence, CleanFailsOnAReadOnlyDisk) {
  store("[a]\n");
  const ReadOnlyDirectory locked;
  EXPECT_FALSE(TariffSystemConfig::clean());
  EXPECT_TRUE(TariffSystemConfig::exists());
}

TEST_F(Presence, RemoveTakesAFileAwayAndNeedsNone) {
  write_file("/config", "a file");
  GlobalSystemConfig::remove();
  ASSERT_EQ(std::remove("/config"), 0);
  GlobalSystemConfig::remove();
  store("[a]\n");
  write_file(kGlobal, "[global]\n");
  GlobalSystemConfig::remove();
  EXPECT_FALSE(GlobalSystemConfig::exists());
  EXPECT_TRUE(TariffSystemConfig::exists());
  TariffSystemConfig::remove();
  EXPECT_FALSE(TariffSystemConfig::exists());
}

TEST_F(Presence, RemoveReportsWhatStays) {
  store("[a]\n");
  std::filesystem::create_directories(kGlobal);
  EXPECT_EXIT(GlobalSystemConfig::remove(), ExitedWithCode(1),
              MatchesRegex("Error: failed to update configuration:.*Is a directory.*\n"));
  const ReadOnlyDirectory locked;
  EXPECT_EXIT(TariffSystemConfig::remove(), ExitedWithCode(1),
              MatchesRegex("Error: failed to update configuration:.*Read-only file system.*\n"));
  EXPECT_TRUE(TariffSystemConfig::exists());
}

}  // namespace
}  // namespace quenby
