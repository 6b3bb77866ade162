#include "tests/config/stored_files.h"

// Whether a stored file is there, and removing it.
namespace quenby {
namespace {

using test::write_file;

class Presence : public test::StoredFiles {
 protected:
  bool has_global() const { return GlobalSystemConfig::exists(folder()); }
  bool has_tariffs() const { return TariffSystemConfig::exists(folder()); }
  bool lacks_global() const { return GlobalSystemConfig::missing(folder()); }
  bool lacks_tariffs() const { return TariffSystemConfig::missing(folder()); }
};

TEST_F(Presence, IsFalseForAMissingFileOrDirectory) {
  EXPECT_FALSE(has_global() || has_tariffs());
  EXPECT_TRUE(lacks_global() && lacks_tariffs());
  std::filesystem::create_directories(folder());
  EXPECT_FALSE(has_global() || has_tariffs());
  EXPECT_TRUE(lacks_global() && lacks_tariffs());
}

TEST_F(Presence, IsTestedForEachFileByItself) {
  store("");
  EXPECT_TRUE(has_tariffs() && lacks_global());
  EXPECT_FALSE(has_global() || lacks_tariffs());
  write_file(global_file(), "");
  EXPECT_TRUE(has_global());
}

TEST_F(Presence, IsTrueForADirectoryAtThePath) {
  std::filesystem::create_directories(global_file());
  std::filesystem::create_directories(tariff_file());
  EXPECT_TRUE(has_global() && has_tariffs());
}

TEST_F(Presence, IsFalseWhereTheStatusCannotBeRead) {
  write_file(file("config"), "a file");
  EXPECT_FALSE(has_global() || has_tariffs());
}

TEST_F(Presence, CleanRemovesTheFile) {
  store("[a]\n");
  write_file(global_file(), "[global]\n");
  EXPECT_TRUE(TariffSystemConfig::clean(folder()));
  EXPECT_TRUE(lacks_tariffs() && has_global());
  EXPECT_TRUE(GlobalSystemConfig::clean(folder()));
  EXPECT_TRUE(lacks_global());
}

TEST_F(Presence, CleanFailsWithoutAFile) {
  EXPECT_FALSE(GlobalSystemConfig::clean(folder()));
  EXPECT_FALSE(TariffSystemConfig::clean(folder()));
  std::filesystem::create_directories(tariff_file());
  EXPECT_FALSE(TariffSystemConfig::clean(folder()));
  EXPECT_TRUE(has_tariffs());
}

TEST_F(Presence, RemoveTakesAFileAwayAndNeedsNone) {
  write_file(file("config"), "a file");
  GlobalSystemConfig::remove(folder());
  ASSERT_TRUE(std::filesystem::remove(file("config")));
  GlobalSystemConfig::remove(folder());
  store("[a]\n");
  write_file(global_file(), "[global]\n");
  GlobalSystemConfig::remove(folder());
  EXPECT_TRUE(lacks_global() && has_tariffs());
  TariffSystemConfig::remove(folder());
  EXPECT_TRUE(lacks_tariffs());
}

TEST_F(Presence, RemoveReportsWhatStays) {
  std::filesystem::create_directories(global_file());
  std::filesystem::create_directories(tariff_file());
  const std::string message = "update configuration:.*Is a directory.*";
  test::expect_failure(message, [this] { GlobalSystemConfig::remove(folder()); });
  test::expect_failure(message, [this] { TariffSystemConfig::remove(folder()); });
}

}  // namespace
}  // namespace quenby
