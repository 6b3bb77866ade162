#include <array>
#include <cstdio>

#include "tests/config/stored_files.h"

// Taking tariffs out of the stored file.
namespace quenby {
namespace {

using test::expect_failure;
using test::kLongName;
using test::mode_of;
using test::names_in;
using test::read_file;
using test::set_of;
using test::tariff;
using test::text_of;
using test::write_file;
using testing::ElementsAre;
using testing::IsEmpty;

class DelSave : public test::StoredFiles {
 protected:
  void delete_a() const { tariffs().delSave(set_of(tariff("a"))); }
  void expect_refused(const std::string& reason = "") const {
    expect_failure("update configuration" + reason, [this] { delete_a(); });
  }
  void expect_nothing_left() const {
    EXPECT_THAT(names_in(temporary()), IsEmpty());
    EXPECT_THAT(names(), ElementsAre("tc_tariff.ini"));
  }
};

TEST_F(DelSave, TakesTheNamedSectionsOut) {
  store(text_of("a", 4) + text_of("b", 5) + text_of("c", 6));
  tariffs().delSave(set_of(tariff("a"), tariff("c"), tariff("x")));
  EXPECT_EQ(stored(), text_of("b", 5));
  expect_nothing_left();
  EXPECT_THAT(seen_by_sync(), IsEmpty());
}

TEST_F(DelSave, NeverTouchesTheOldFile) {
  store(text_of("a", 4) + text_of("b", 5));
  std::filesystem::create_hard_link(tariff_file(), file("old"));
  delete_a();
  EXPECT_EQ(read_file(file("old")), text_of("a", 4) + text_of("b", 5));
  EXPECT_EQ(stored(), text_of("b", 5));
}

TEST_F(DelSave, CopiesALongFileAsAWhole) {
  std::string text;
  for (int i = 0; i < 5000; ++i) text += text_of("t" + std::to_string(i), 4 + i);
  store(text_of("a", 4) + text);
  delete_a();
  EXPECT_EQ(stored(), text);
}

TEST_F(DelSave, KeepsTheModeOfTheFile) {
  for (const mode_t mode : {0644U, 0600U, 0640U, 0666U}) {
    store(text_of("a", 4) + text_of("b", 5));
    ASSERT_EQ(chmod(tariff_file().c_str(), mode), 0);
    delete_a();
    EXPECT_EQ(mode_of(tariff_file()), mode);
  }
}

TEST_F(DelSave, OfTheOnlyTariffRemovesTheFile) {
  store(text_of("a", 4));
  delete_a();
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(names_in(temporary()), IsEmpty());
}

TEST_F(DelSave, FailsOnAFullTemporaryDiskWithTheOldFileInPlace) {
  const std::string text = text_of("a", 4) + text_of(kLongName, 5);
  store(text);
  expect_failure("update configuration", [this] {
    test::make_disk_small();
    delete_a();
  });
  EXPECT_EQ(stored(), text);
  expect_nothing_left();
}

TEST_F(DelSave, FailsAtADirectory) {
  std::filesystem::create_directories(tariff_file());
  expect_refused();
  EXPECT_TRUE(std::filesystem::is_directory(tariff_file()));
}

TEST_F(DelSave, FailsWithoutAFile) {
  expect_refused();
  EXPECT_THAT(names_in(temporary()), IsEmpty());
}

TEST_F(DelSave, FailsAtAMalformedHeaderWithTheFileUnchanged) {
  store(text_of("a", 4) + "[]\n");
  expect_refused();
  EXPECT_EQ(stored(), text_of("a", 4) + "[]\n");
  expect_nothing_left();
}

// Links to `victim` under the temporary names whose last digit is below `digits`.
void plant_links(const std::string& folder, const std::string& victim, int digits) {
  for (int i = 0; i < 65'536; ++i) {
    if (i % 16 >= digits) continue;
    std::array<char, 32> name{};
    std::snprintf(name.data(), name.size(), "/kavo-qos-shaper-%04x", i);
    std::filesystem::create_symlink(victim, folder + name.data());
  }
}

TEST_F(DelSave, NeverWritesThroughALinkUnderItsTemporaryName) {
  store(text_of("a", 4) + text_of("b", 5));
  write_file(file("victim"), "precious");
  plant_links(temporary(), file("victim"), 14);
  delete_a();
  EXPECT_EQ(stored(), text_of("b", 5));
  EXPECT_EQ(read_file(file("victim")), "precious");
  EXPECT_EQ(names_in(temporary()).size(), 4096U * 14);
}

TEST_F(DelSave, FailsWhenEveryTemporaryNameIsTaken) {
  store(text_of("a", 4) + text_of("b", 5));
  write_file(file("victim"), "precious");
  plant_links(temporary(), file("victim"), 16);
  expect_refused(":[^ ].*");
  EXPECT_EQ(stored(), text_of("a", 4) + text_of("b", 5));
  EXPECT_EQ(read_file(file("victim")), "precious");
}

}  // namespace
}  // namespace quenby
