#include "tests/config/sandbox.h"

// Replacing some sections of the stored tariff file.
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

using UpdSave = test::StoredFiles;

TEST_F(UpdSave, MovesChangedSectionsToTheEndAndKeepsTheOthers) {
  store(text_of("a", 4) + text_of("b", 5) + text_of("c", 6));
  TariffSettings b = tariff("b", 5);
  b.addCIDR("10.0.0.1");
  TariffSystemConfig().updSave(set_of(b));
  EXPECT_EQ(read_file(kTariffs), text_of("a", 4) + text_of("c", 6) +
                                     "[b]\nid=5\nip=10.0.0.1\ndownload_speed=0\nupload_speed=0\n");
  EXPECT_THAT(names_in(kDirectory), ElementsAre("tc_tariff.ini"));
}

TEST_F(UpdSave, AddsSectionsThatAreNew) {
  store("[a]\nid=4\n; kept");
  TariffSystemConfig().updSave(set_of(tariff("b", 5)));
  EXPECT_EQ(read_file(kTariffs), "[a]\nid=4\n; kept\n" + text_of("b", 5));
}

TEST_F(UpdSave, KeepsTheOldFileUntilTheNewOneIsSynced) {
  store(text_of("a", 4));
  TariffSystemConfig().updSave(set_of(tariff("a", 7)));
  EXPECT_THAT(seen_by_sync(),
              MatchesRegex("tc_tariff\\.ini\ntc_tariff\\.ini-[0-9a-f][0-9a-f][0-9a-f][0-9a-f]\n"
                           "\\[a\\]\nid=4\n.*"));
  EXPECT_EQ(read_file(kTariffs), text_of("a", 7));
}

TEST_F(UpdSave, KeepsTheModeOfTheFile) {
  for (const mode_t mode : {0644U, 0600U, 0640U, 0666U}) {
    store(text_of("a", 4));
    ASSERT_EQ(chmod(kTariffs, mode), 0);
    TariffSystemConfig().updSave(set_of(tariff("a", 7)));
    EXPECT_EQ(mode_of(kTariffs), mode);
  }
}

TEST_F(UpdSave, FailsOnAReadOnlyDisk) {
  store(text_of("a", 4));
  const ReadOnlyDirectory locked;
  EXPECT_EXIT(TariffSystemConfig().updSave(set_of(tariff("a", 7))), ExitedWithCode(1),
              Eq("Error: failed to update configuration\n"));
  EXPECT_EQ(read_file(kTariffs), text_of("a", 4));
}

TEST_F(UpdSave, FailsAtADirectory) {
  std::filesystem::create_directories(kTariffs);
  EXPECT_EXIT(TariffSystemConfig().updSave(set_of(tariff("a", 7))), ExitedWithCode(1),
              Eq("Error: failed to update configuration\n"));
  EXPECT_THAT(names_in(kDirectory), ElementsAre("tc_tariff.ini"));
  EXPECT_TRUE(std::filesystem::is_directory(kTariffs));
}

TEST_F(UpdSave, FailsWithoutAFile) {
  EXPECT_EXIT(TariffSystemConfig().updSave(set_of(tariff("a", 4))), ExitedWithCode(1),
              Eq("Error: failed to update configuration\n"));
  EXPECT_FALSE(std::filesystem::exists(kTariffs));
}

TEST_F(UpdSave, FailsAtAMalformedHeaderAndLeavesNothingBehind) {
  store("[a]\nid=4\n[\n");
  EXPECT_EXIT(TariffSystemConfig().updSave(set_of(tariff("b", 5))), ExitedWithCode(1),
              Eq("Error: failed to update configuration\n"));
  EXPECT_EQ(read_file(kTariffs), "[a]\nid=4\n[\n");
  EXPECT_THAT(names_in(kDirectory), ElementsAre("tc_tariff.ini"));
  EXPECT_THAT(seen_by_sync(), IsEmpty());
}

TEST_F(UpdSave, FailsOnAFullDiskWithTheOldFileInPlace) {
  const FullDisk disk;
  write_file(kTariffs, text_of("a", 4));
  EXPECT_EXIT(TariffSystemConfig().updSave(set_of(tariff("a", 7))), ExitedWithCode(1),
              Eq("Error: failed to update configuration\n"));
  EXPECT_EQ(read_file(kTariffs), text_of("a", 4));
  EXPECT_THAT(names_in(kDirectory), ElementsAre("tc_tariff.ini"));
}

}  // namespace
}  // namespace quenby
