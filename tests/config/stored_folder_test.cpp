#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/system_config.h"
#include "tests/support/files.h"
#include "tests/support/tariffs.h"

// The stored files in a folder of the caller's choice: what a save, a look and a removal touch is
// below that folder alone.
namespace quenby {
namespace {

using test::names_in;
using test::read_file;
using test::set_of;
using test::tariff;
using testing::ElementsAre;
using testing::IsEmpty;

class StoredFolder : public testing::Test {
 protected:
  // Not there before the first save.
  std::string folder() const { return scratch_.file("deep/tc"); }
  std::string tariffs() const { return read_file(folder() + "/tc_tariff.ini"); }

 private:
  test::ScratchDirectory scratch_;
};

std::string section(const std::string& name, int id) {
  return "[" + name + "]\nid=" + std::to_string(id) + "\ndownload_speed=0\nupload_speed=0\n";
}

TEST_F(StoredFolder, IsMadeByAWholeSaveOfEitherFile) {
  GlobalSystemConfig(folder()).cfgSave(GlobalSet());
  EXPECT_THAT(names_in(folder()), ElementsAre("tc_global.ini"));
  TariffSystemConfig(folder()).cfgSave(set_of(tariff("a", 4)));
  EXPECT_THAT(names_in(folder()), ElementsAre("tc_global.ini", "tc_tariff.ini"));
  EXPECT_EQ(tariffs(), section("a", 4));
}

TEST_F(StoredFolder, IsWhereTariffsAreAppendedChangedAndDeleted) {
  TariffSystemConfig file(folder());
  file.addSave(set_of(tariff("a", 4), tariff("b", 5)));
  EXPECT_EQ(tariffs(), section("a", 4) + section("b", 5));
  file.updSave(set_of(tariff("a", 7)));
  EXPECT_EQ(tariffs(), section("b", 5) + section("a", 7));
  file.delSave(set_of(tariff("b")));
  EXPECT_EQ(tariffs(), section("a", 7));
  file.delSave(set_of(tariff("a")));
  EXPECT_THAT(names_in(folder()), IsEmpty());
}

TEST_F(StoredFolder, LosesTheFileWithAnEmptySave) {
  TariffSystemConfig(folder()).cfgSave(set_of(tariff("a", 4)));
  TariffSystemConfig(folder()).cfgSave(TariffSet());
  EXPECT_THAT(names_in(folder()), IsEmpty());
}

template <typename File>
void expect_presence(const std::string& folder) {
  EXPECT_TRUE(File::missing(folder));
  EXPECT_FALSE(File::exists(folder));
  EXPECT_FALSE(File::clean(folder));
  File(folder).cfgSave({});
  EXPECT_EQ(File::exists(folder), !File::missing(folder));
}

TEST_F(StoredFolder, IsWhereFilesAreLookedForAndRemoved) {
  expect_presence<GlobalSystemConfig>(folder());
  expect_presence<TariffSystemConfig>(folder());
  EXPECT_TRUE(GlobalSystemConfig::exists(folder()));
  EXPECT_TRUE(GlobalSystemConfig::clean(folder()));
  EXPECT_TRUE(GlobalSystemConfig::missing(folder()));
  TariffSystemConfig(folder()).cfgSave(set_of(tariff("a", 4)));
  TariffSystemConfig::remove(folder());
  EXPECT_TRUE(TariffSystemConfig::missing(folder()));
}

}  // namespace
}  // namespace quenby
