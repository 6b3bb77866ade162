#include <array>
#include <cstdio>

#include "tests/config/sandbox.h"

// Taking tariffs out of the stored file.
namespace quenby {
namespace {

using test::FullDisk;
using test::kDirectory;
using test::kTariffs;
using test::mode_of;
using test::names_in;
using test::OwnDisk;
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

TEST_F(DelSave, NeverTouchesTheOldFile) {
  store(text_of("a", 4) + text_of("b", 5));
  std::filesystem::create_hard_link(kTariffs, "/config/old");
  TariffSystemConfig().delSave(set_of(tariff("a")));
  EXPECT_EQ(read_file("/config/old"), text_of("a", 4) + text_of("b", 5));
  EXPECT_EQ(read_file(kTariffs), text_of("b", 5));
}

TEST_F(DelSave, WorksWithTheFileOnAnotherDisk) {
  const OwnDisk disk;
  write_file(kTariffs, text_of("a", 4) + text_of("b", 5));
  TariffSystemConfig().delSave(set_of(tariff("a")));
  EXPECT_EQ(read_file(kTariffs), text_of("b", 5));
  EXPECT_THAT(names_in("/tmp"), IsEmpty());
  EXPECT_THAT(names_in(kDirectory), ElementsAre("tc_tariff.ini"));
}

TEST_F(DelSave, CopiesALongFileAsAWhole) {
  const OwnDisk disk;
  std::string text;
  for (int i = 0; i < 5000; ++i) text += text_of("t" + std::to_string(i), 4 + i);
  write_file(kTariffs, text_of("a", 4) + text);
  TariffSystemConfig().delSave(set_of(tariff("a")));
  EXPECT_EQ(read_file(kTariffs), text);
}

TEST_F(DelSave, NeedsNoCommand) {
  store(text_of("a", 4) + text_of("b", 5));
  TariffSystemConfig().delSave(set_of(tariff("a")));
  EXPECT_THAT(seen_by_sync(), IsEmpty());
}

TEST_F(DelSave, KeepsTheModeOfTheFile) {
  for (const mode_t mode : {0644U, 0600U, 0640U, 0666U}) {
    store(text_of("a", 4) + text_of("b", 5));
    ASSERT_EQ(chmod(kTariffs, mode), 0);
    TariffSystemConfig().delSave(set_of(tariff("a")));
    EXPECT_EQ(mode_of(kTariffs), mode);
  }
}

TEST_F(DelSave, FailsOnAFullDiskWithTheOldFileInPlace) {
  const FullDisk disk;
  write_file(kTariffs, text_of("a", 4) + text_of("b", 5));
  EXPECT_EXIT(TariffSystemConfig().delSave(set_of(tariff("a"))), ExitedWithCode(1),
              MatchesRegex("Error: failed to update configuration:.*No space left on device.*\n"));
  EXPECT_EQ(read_file(kTariffs), text_of("a", 4) + text_of("b", 5));
  EXPECT_THAT(names_in("/tmp"), IsEmpty());
  EXPECT_THAT(names_in(kDirectory), ElementsAre("tc_tariff.ini"));
}

// The message itself passes through /tmp here, and has room when the copy is gone.
TEST_F(DelSave, FailsOnAFullTemporaryDiskWithTheOldFileInPlace) {
  const OwnDisk disk("8k", "/tmp");
  const std::string stored = text_of("a", 4) + text_of(std::string(3000, 'b'), 5) +
                             text_of(std::string(3000, 'c'), 6) +
                             text_of(std::string(3000, 'd'), 7);
  store(stored);
  EXPECT_EXIT(TariffSystemConfig().delSave(set_of(tariff("a"))), ExitedWithCode(1),
              Eq("Error: failed to update configuration\n"));
  EXPECT_EQ(read_file(kTariffs), stored);
  EXPECT_THAT(names_in("/tmp"), IsEmpty());
}

TEST_F(DelSave, FailsWhenTheFileCannotBeRemoved) {
  store(text_of("a", 4));
  const ReadOnlyDirectory locked;
  EXPECT_EXIT(TariffSystemConfig().delSave(set_of(tariff("a"))), ExitedWithCode(1),
              MatchesRegex("Error: failed to update configuration:.*Read-only file system.*\n"));
  EXPECT_EQ(read_file(kTariffs), text_of("a", 4));
  EXPECT_THAT(names_in("/tmp"), IsEmpty());
}

TEST_F(DelSave, FailsAtADirectory) {
  std::filesystem::create_directories(kTariffs);
  EXPECT_EXIT(TariffSystemConfig().delSave(set_of(tariff("a"))), ExitedWithCode(1),
              Eq("Error: failed to update configuration\n"));
  EXPECT_TRUE(std::filesystem::is_directory(kTariffs));
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
