#include "ctl/kept_files.h"

#include <sys/stat.h>

#include <boost/filesystem.hpp>
#include <gmock/gmock.h>
#include <unistd.h>

#include "ctl/status.h"
#include "tests/support/files.h"

// The stored files that a change can be taken back to.
namespace quenby {
namespace {

using boost::filesystem::filesystem_error;
using test::mode_of;
using test::names_in;
using test::read_file;
using test::write_file;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

constexpr const char* kGlobal = "[global]\nwan=eth1\n";

class KeptFilesTest : public ::testing::Test {
 protected:
  KeptFilesTest() {
    write_file(global(), kGlobal);
    write_file(tariffs(), "[a]\nid=4\n");
  }
  std::string global() const { return folder_.file("tc_global.ini"); }
  std::string tariffs() const { return folder_.file("tc_tariff.ini"); }
  std::string kept_folder() const { return folder_.file("tc_kept"); }

  ChangeRecord keep() const {
    ChangeRecord record = new_record("load");
    kept_.keep(record);
    return record;
  }
  void take_back() const {
    const std::optional<ChangeRecord> record = kept_.record();
    ASSERT_TRUE(record);
    kept_.begin_taking_back();
    kept_.put_back(*record);
    kept_.forget();
  }

  test::ScratchDirectory folder_;
  KeptFiles kept_{folder_.path()};
};

TEST_F(KeptFilesTest, ComeBackWithTheirModes) {
  chmod(global().c_str(), 0640);
  chmod(tariffs().c_str(), 0604);
  keep();
  EXPECT_EQ(mode_of(kept_folder()), 0700U);
  write_file(global(), "x");
  unlink(tariffs().c_str());
  take_back();
  EXPECT_EQ(read_file(global()), kGlobal);
  EXPECT_EQ(read_file(tariffs()), "[a]\nid=4\n");
  EXPECT_EQ(mode_of(global()), 0640U);
  EXPECT_EQ(mode_of(tariffs()), 0604U);
  EXPECT_THAT(names_in(folder_.path()), ElementsAre("tc_global.ini", "tc_tariff.ini"));
}

TEST_F(KeptFilesTest, OneThatWasNotThereGoesAgain) {
  unlink(global().c_str());
  unlink(tariffs().c_str());
  const ChangeRecord record = keep();
  EXPECT_FALSE(record.had_global || record.had_tariffs);
  write_file(tariffs(), "x");
  take_back();
  EXPECT_THAT(names_in(folder_.path()), ElementsAre());
}

TEST_F(KeptFilesTest, TheFolderIsMadeForThem) {
  const KeptFiles elsewhere(folder_.file("new"));
  ChangeRecord record = new_record("load");
  elsewhere.keep(record);
  EXPECT_TRUE(elsewhere.record());
  elsewhere.forget();
  EXPECT_THAT(names_in(folder_.file("new")), ElementsAre());
}

TEST_F(KeptFilesTest, TheRecordTellsTheChange) {
  EXPECT_FALSE(kept_.record());
  const ChangeRecord record = keep();
  const std::optional<ChangeRecord> found = kept_.record();
  ASSERT_TRUE(found);
  EXPECT_EQ(to_text(*found), to_text(record));
  EXPECT_EQ(found->state, ChangeState::under_way);
  EXPECT_EQ(found->command, "load");
  EXPECT_TRUE(found->had_global && found->had_tariffs && is_of_this_boot(*found));
  kept_.wait(record);
  EXPECT_EQ(kept_.record()->state, ChangeState::waiting);
  kept_.begin_taking_back();
  EXPECT_EQ(kept_.record()->state, ChangeState::taking_back);
  kept_.forget();
  EXPECT_FALSE(kept_.record());
}

TEST_F(KeptFilesTest, AnInterruptedReturnGoesOn) {
  keep();
  write_file(global(), "x");
  write_file(tariffs(), "y");
  const ChangeRecord record = *kept_.record();
  kept_.begin_taking_back();
  // One is back already.
  ASSERT_EQ(rename((kept_folder() + "/tc_global.ini").c_str(), global().c_str()), 0);
  take_back();
  EXPECT_EQ(read_file(global()), kGlobal);
  EXPECT_EQ(read_file(tariffs()), "[a]\nid=4\n");
}

TEST_F(KeptFilesTest, WhatAnEarlierChangeLeftIsNotInTheWay) {
  mkdir(kept_folder().c_str(), 0700);
  write_file(kept_folder() + "/tc_global.ini", "stale");
  write_file(kept_folder() + "/change-1a2b", "stale");
  keep();
  EXPECT_EQ(read_file(kept_folder() + "/tc_global.ini"), kGlobal);
  kept_.forget();
}

TEST_F(KeptFilesTest, SomebodyElsesFolderIsLeftAlone) {
  mkdir(kept_folder().c_str(), 0755);
  write_file(kept_folder() + "/mine", "x");
  EXPECT_THROW(keep(), filesystem_error);
  EXPECT_FALSE(kept_.record());
  EXPECT_EQ(read_file(kept_folder() + "/mine"), "x");
}

TEST_F(KeptFilesTest, OnlyRegularFilesAreKept) {
  unlink(tariffs().c_str());
  ASSERT_EQ(symlink(global().c_str(), tariffs().c_str()), 0);
  EXPECT_THROW(keep(), NotRun);
  unlink(tariffs().c_str());
  mkdir(tariffs().c_str(), 0755);
  EXPECT_THROW(keep(), NotRun);
  EXPECT_FALSE(kept_.record());
  EXPECT_THAT(names_in(folder_.path()), ElementsAre("tc_global.ini", "tc_tariff.ini"));
}

TEST_F(KeptFilesTest, ADamagedRecordIsNamed) {
  keep();
  for (const char* const text : {"", "{", "{}", "[1]", "{\"id\": 1}"}) {
    write_file(kept_folder() + "/change", text);
    EXPECT_THAT([this] { kept_.record(); }, ThrowsMessage<NotRun>(HasSubstr("change is damaged")));
  }
}

TEST_F(KeptFilesTest, TheNewInterfaceIsNamedUntilTheyAreBack) {
  ChangeRecord record = keep();
  record.wan = "eth2";
  kept_.name_new_wan(record);
  EXPECT_EQ(read_file(global()), "[global]\nwan=eth2\nenabled=true\n");
  kept_.put_back(record);
  kept_.name_new_wan(record);
  EXPECT_EQ(read_file(global()), kGlobal);
}

TEST_F(KeptFilesTest, TheNewInterfaceIsNamedWhereNoneWas) {
  unlink(global().c_str());
  ChangeRecord record = keep();
  record.wan = "eth2";
  kept_.name_new_wan(record);
  EXPECT_EQ(read_file(global()), "[global]\nwan=eth2\nenabled=true\n");
  take_back();
  EXPECT_THAT(names_in(folder_.path()), ElementsAre("tc_tariff.ini"));
}

TEST(ChangeRecordText, SaysWhatEndsAChange) {
  ChangeRecord record = new_record("load");
  EXPECT_EQ(describe(record),
            "a change was interrupted (load): \"quenbyctl apply --take-back\" takes it back");
  record.state = ChangeState::waiting;
  record.deadline = now_ms() + 59'500;
  EXPECT_THAT(describe(record), HasSubstr("(load; 60 s left): \"quenbyctl confirm\" keeps it"));
  record.deadline = now_ms() - 5000;
  EXPECT_THAT(describe(record), HasSubstr("(load; 0 s left)"));
  record.boot = "another";
  EXPECT_THAT(describe(record), HasSubstr("(load; the router was restarted meanwhile)"));
}

TEST(ChangeRecordText, NamesOfAnyBytesAreKeptAsFarAsTheyGo) {
  const ChangeRecord record = new_record("tariff-del \xff");
  EXPECT_EQ(record_from(to_text(record), "p").command, "tariff-del \xef\xbf\xbd");
}

}  // namespace
}  // namespace quenby
