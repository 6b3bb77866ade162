#include "tests/config/stored_files.h"

// Appending tariffs to the stored file.
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

class AddSave : public test::StoredFiles {
 protected:
  void add(const TariffSettings& t) const { tariffs().addSave(set_of(t)); }
  void expect_refused(const std::string& message) const {
    expect_failure(message, [this] { add(tariff("b", 5)); });
  }
};

TEST_F(AddSave, MakesAMissingFileWithTheNewSections) {
  tariffs().addSave(set_of(tariff("b", 5), tariff("a", 4)));
  EXPECT_EQ(stored(), text_of("b", 5) + text_of("a", 4));
  EXPECT_EQ(mode_of(tariff_file()), 0644U);
}

TEST_F(AddSave, AppendsInPlace) {
  store(text_of("a", 4));
  std::filesystem::create_hard_link(tariff_file(), file("same"));
  add(tariff("b", 5));
  EXPECT_EQ(test::read_file(file("same")), text_of("a", 4) + text_of("b", 5));
  EXPECT_THAT(names(), ElementsAre("tc_tariff.ini"));
  EXPECT_THAT(seen_by_sync(), IsEmpty());
}

TEST_F(AddSave, EndsAnUnfinishedLineFirst) {
  store("[a]\nid=4");
  add(tariff("b", 5));
  EXPECT_EQ(stored(), "[a]\nid=4\n" + text_of("b", 5));
}

TEST_F(AddSave, AddsNoLineEndToAnEmptyFile) {
  store("");
  add(tariff("b", 5));
  EXPECT_EQ(stored(), text_of("b", 5));
}

TEST_F(AddSave, KeepsTheModeOfTheFile) {
  store(text_of("a", 4));
  ASSERT_EQ(chmod(tariff_file().c_str(), 0600), 0);
  add(tariff("b", 5));
  EXPECT_EQ(mode_of(tariff_file()), 0600U);
}

TEST_F(AddSave, FailsWhenTheFileCannotBeOpened) {
  std::filesystem::create_directories(tariff_file());
  expect_refused("save configuration");
}

TEST_F(AddSave, FailsWhenTheDirectoryCannotBeMade) {
  test::write_file(file("config"), "a file");
  expect_refused("save configuration:[^ ].*");
}

TEST_F(AddSave, TakesBackWhatFitsOnAFullDisk) {
  for (const std::string& text : {text_of("a", 4), text_of("a", 4) + "[b]\nid=5"}) {
    store(text);
    expect_failure("save configuration", [this] {
      test::make_disk_small();
      add(tariff(kLongName, 6));
    });
    EXPECT_EQ(stored(), text);
  }
}

TEST_F(AddSave, LeavesNoNewFileOnAFullDisk) {
  expect_failure("save configuration", [this] {
    test::make_disk_small();
    add(tariff(kLongName, 6));
  });
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(AddSave, FailsAtAPipeWithoutWaiting) {
  std::filesystem::create_directories(folder());
  ASSERT_EQ(mkfifo(tariff_file().c_str(), 0600), 0);
  expect_refused("save configuration");
}

TEST_F(AddSave, FailsAtADeviceAndWritesNothingToIt) {
  std::filesystem::create_directories(folder());
  std::filesystem::create_symlink("/dev/null", tariff_file());
  expect_refused("save configuration");
}

}  // namespace
}  // namespace quenby
