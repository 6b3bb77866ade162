#include "tests/config/stored_files.h"

// Replacing some sections of the stored tariff file.
namespace quenby {
namespace {

using test::expect_failure;
using test::kLongName;
using test::mode_of;
using test::set_of;
using test::tariff;
using test::text_of;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

class UpdSave : public test::StoredFiles {
 protected:
  void update(const TariffSettings& t) const { tariffs().updSave(set_of(t)); }
  void expect_refused() const {
    expect_failure("update configuration", [this] { update(tariff("a", 7)); });
  }
};

TEST_F(UpdSave, MovesChangedSectionsToTheEndAndKeepsTheOthers) {
  store(text_of("a", 4) + text_of("b", 5) + text_of("c", 6));
  TariffSettings b = tariff("b", 5);
  b.addCIDR("10.0.0.1");
  update(b);
  EXPECT_EQ(stored(), text_of("a", 4) + text_of("c", 6) +
                          "[b]\nid=5\nip=10.0.0.1\ndownload_speed=0\nupload_speed=0\n");
  EXPECT_THAT(names(), ElementsAre("tc_tariff.ini"));
}

TEST_F(UpdSave, AddsSectionsThatAreNew) {
  store("[a]\nid=4\n; kept");
  update(tariff("b", 5));
  EXPECT_EQ(stored(), "[a]\nid=4\n; kept\n" + text_of("b", 5));
}

TEST_F(UpdSave, KeepsTheOldFileUntilTheNewOneIsSynced) {
  store(text_of("a", 4));
  update(tariff("a", 7));
  EXPECT_THAT(seen_by_sync(),
              MatchesRegex("tc_tariff\\.ini\ntc_tariff\\.ini-[0-9a-f][0-9a-f][0-9a-f][0-9a-f]\n"
                           "\\[a\\]\nid=4\n.*"));
  EXPECT_EQ(stored(), text_of("a", 7));
}

TEST_F(UpdSave, KeepsTheModeOfTheFile) {
  for (const mode_t mode : {0644U, 0600U, 0640U, 0666U}) {
    store(text_of("a", 4));
    ASSERT_EQ(chmod(tariff_file().c_str(), mode), 0);
    update(tariff("a", 7));
    EXPECT_EQ(mode_of(tariff_file()), mode);
  }
}

TEST_F(UpdSave, FailsAtADirectory) {
  std::filesystem::create_directories(tariff_file());
  expect_refused();
  EXPECT_THAT(names(), ElementsAre("tc_tariff.ini"));
  EXPECT_TRUE(std::filesystem::is_directory(tariff_file()));
}

TEST_F(UpdSave, FailsWithoutAFile) {
  expect_refused();
  EXPECT_FALSE(std::filesystem::exists(tariff_file()));
}

TEST_F(UpdSave, FailsAtAMalformedHeaderAndLeavesNothingElse) {
  store("[a]\nid=4\n[\n");
  expect_refused();
  EXPECT_EQ(stored(), "[a]\nid=4\n[\n");
  EXPECT_THAT(names(), ElementsAre("tc_tariff.ini"));
  EXPECT_THAT(seen_by_sync(), IsEmpty());
}

TEST_F(UpdSave, FailsOnAFullDiskWithTheOldFileInPlace) {
  store(text_of("a", 4));
  expect_failure("update configuration", [this] {
    test::make_disk_small();
    update(tariff(kLongName, 5));
  });
  EXPECT_EQ(stored(), text_of("a", 4));
  EXPECT_THAT(names(), ElementsAre("tc_tariff.ini"));
}

}  // namespace
}  // namespace quenby
