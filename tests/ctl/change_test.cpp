#include "ctl/change.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/support/files.h"

// How a change ends: made, waiting or taken back, on files of the test's own and a kernel that is a
// text: what the tariff file says while it was last loaded.
namespace quenby {
namespace {

using Kind = Outcome::Kind;
using test::names_in;
using test::read_file;
using test::write_file;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

class ChangeTest : public ::testing::Test {
 protected:
  ChangeTest() {
    write_file(global(), "[global]\nwan=eth1\n");
    write_file(tariffs(), "old");
    write_file(note(), "--load\n");
    kernel_ = "old";
  }
  std::string global() const { return folder_.file("tc_global.ini"); }
  std::string tariffs() const { return folder_.file("tc_tariff.ini"); }
  std::string note() const { return folder_.file("on"); }

  KernelAccess access() {
    return {[this](const Lines& arguments) { run(arguments); },
            [this] { return kernel_ == stored() ? Lines() : Lines{"class 4 is missing"}; },
            [this] {
              ++repairs_;
              if (repairs_ <= failing_repairs_) throw NotRun("no kernel");
              kernel_ = stored();
            }};
  }
  void run(const Lines& arguments) {
    ran_.push_back(arguments.front());
    if (arguments.front() == "--stop") {
      kernel_ = "";
      stopped_ = read_file(global());
      return;
    }
    write_file(tariffs(), "new");
    kernel_ = half_done_ ? "half" : "new";
    if (fails_) throw NotRun("quenby has failed with status 1");
  }
  std::string stored() const {
    return access_exists(tariffs()) ? read_file(tariffs()) : std::string();
  }
  static bool access_exists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

  ChangePlaces places() { return {KeptFiles(folder_.path()), WantedNote(note()), access()}; }

  Outcome make(std::optional<unsigned> seconds = {}) {
    const ChangePlaces all = places();
    ChangeRecord record = new_record("tariff-add FILE");
    record.had_note = all.wanted.exists();
    record.was_wanted = record.had_note || kernel_ == stored();
    all.kept.keep(record);
    all.wanted.write("--tariff-add");
    return make_change(all, record, {"--tariff-add", "FILE"}, seconds);
  }
  void expect_old(const Outcome& outcome, const std::string& reason) {
    EXPECT_EQ(outcome.kind, Kind::taken_back);
    EXPECT_EQ(outcome.reason, reason);
    EXPECT_EQ(read_file(tariffs()), "old");
    EXPECT_FALSE(places().kept.record());
    EXPECT_THAT(names_in(folder_.path()), ::testing::Not(::testing::Contains("tc_kept")));
  }

  test::ScratchDirectory folder_;
  std::string kernel_;
  bool fails_ = false;
  bool half_done_ = false;
  int repairs_ = 0;
  int failing_repairs_ = 0;
  Lines ran_;
  // The global file that the program saw when it stopped.
  std::string stopped_;
};

TEST_F(ChangeTest, IsMade) {
  const Outcome outcome = make();
  EXPECT_EQ(outcome.kind, Kind::applied);
  EXPECT_EQ(outcome.command, "tariff-add FILE");
  EXPECT_EQ(read_file(tariffs()), "new");
  EXPECT_EQ(kernel_, "new");
  EXPECT_EQ(repairs_, 0);
  EXPECT_THAT(names_in(folder_.path()), ElementsAre("on", "tc_global.ini", "tc_tariff.ini"));
}

TEST_F(ChangeTest, IsTakenBackWhenTheProgramFails) {
  fails_ = half_done_ = true;
  expect_old(make(), "quenby has failed with status 1");
  EXPECT_EQ(kernel_, "old");
  EXPECT_TRUE(places().wanted.exists());
}

TEST_F(ChangeTest, IsTakenBackWhenTheKernelDiffers) {
  half_done_ = true;
  const Outcome outcome = make();
  EXPECT_THAT(outcome.differences, ElementsAre("class 4 is missing"));
  expect_old(outcome, "the kernel differs from the files");
  EXPECT_EQ(kernel_, "old");
}

TEST_F(ChangeTest, IsTakenBackToNoShapingWhereNoneWasWanted) {
  unlink(note().c_str());
  kernel_ = "";
  fails_ = true;
  expect_old(make(), "quenby has failed with status 1");
  EXPECT_EQ(kernel_, "");
  EXPECT_FALSE(places().wanted.exists());
  EXPECT_EQ(repairs_, 0);
}

TEST_F(ChangeTest, WhatStoodWithoutANoteIsRepairedWithoutOne) {
  unlink(note().c_str());
  fails_ = half_done_ = true;
  expect_old(make(), "quenby has failed with status 1");
  EXPECT_EQ(kernel_, "old");
  EXPECT_FALSE(places().wanted.exists());
}

TEST_F(ChangeTest, AFailingRepairIsTriedAgain) {
  fails_ = true;
  failing_repairs_ = 2;
  expect_old(make(), "quenby has failed with status 1");
  EXPECT_EQ(repairs_, 3);
  EXPECT_EQ(kernel_, "old");
}

TEST_F(ChangeTest, AKernelThatCannotBeRepairedIsSaid) {
  fails_ = true;
  failing_repairs_ = 9;
  const Outcome outcome = make();
  EXPECT_EQ(outcome.kind, Kind::stuck);
  EXPECT_THAT(outcome.reason,
              HasSubstr("the files are the former ones, the kernel is not: no kern"));
  EXPECT_EQ(read_file(tariffs()), "old");
  EXPECT_FALSE(places().kept.record());
}

TEST_F(ChangeTest, FilesThatCannotBePutBackAreSaid) {
  fails_ = true;
  ChangePlaces all = places();
  ChangeRecord record = new_record("load");
  all.kept.keep(record);
  // A folder with something in it cannot be replaced.
  all.kernel.run = [this](const Lines&) {
    unlink(tariffs().c_str());
    std::filesystem::create_directories(tariffs() + "/x");
    throw NotRun("failed");
  };
  const Outcome outcome = make_change(all, record, {"--load"}, {});
  EXPECT_EQ(outcome.kind, Kind::stuck);
  EXPECT_THAT(outcome.reason, HasSubstr("cannot put the files back: "));
  EXPECT_THAT(outcome.reason, HasSubstr("\"quenbyctl apply --take-back\" tries again"));
  std::filesystem::remove_all(tariffs());
  EXPECT_EQ(places().kept.record()->state, ChangeState::taking_back);
  take_back(places());
  EXPECT_EQ(read_file(tariffs()), "old");
}

class WaitingChange : public ChangeTest {
 protected:
  WaitingChange() : outcome_(make(60)) {}
  Outcome outcome_;
};

TEST_F(WaitingChange, IsRecorded) {
  EXPECT_EQ(outcome_.kind, Kind::waiting);
  EXPECT_EQ(outcome_.seconds, 60);
  const std::optional<ChangeRecord> record = places().kept.record();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->state, ChangeState::waiting);
  EXPECT_NEAR(static_cast<double>(record->deadline), static_cast<double>(now_ms() + 60'000), 5000);
  EXPECT_EQ(kernel_, "new");
}

TEST_F(WaitingChange, IsTakenBack) {
  take_back(places());
  EXPECT_EQ(read_file(tariffs()), "old");
  EXPECT_EQ(kernel_, "old");
  EXPECT_FALSE(places().kept.record());
}

TEST_F(WaitingChange, WhatWasStoppedMeanwhileStaysOff) {
  kernel_ = "";
  unlink(note().c_str());
  take_back(places());
  EXPECT_EQ(read_file(tariffs()), "old");
  EXPECT_EQ(kernel_, "");
  EXPECT_EQ(repairs_, 0);
}

TEST_F(WaitingChange, AnotherInterfaceIsStoppedByItsName) {
  ChangeRecord record = *places().kept.record();
  record.former_wan = "eth1";
  record.wan = "eth2";
  places().kept.wait(record);
  take_back(places());
  EXPECT_THAT(ran_, ElementsAre("--tariff-add", "--stop"));
  EXPECT_THAT(stopped_, HasSubstr("wan=eth2\n"));
  EXPECT_EQ(read_file(global()), "[global]\nwan=eth1\n");
  EXPECT_EQ(kernel_, "old");
}

TEST_F(WaitingChange, IsRepairedAfterABootThatHasLoadedIt) {
  ChangeRecord record = *places().kept.record();
  record.boot = "another";
  record.was_wanted = record.had_note = false;
  places().kept.wait(record);
  take_back(places());
  EXPECT_EQ(kernel_, "old");
  EXPECT_TRUE(places().wanted.exists());
}

TEST_F(ChangeTest, WithoutARecordNothingIsTakenBack) {
  EXPECT_THROW(take_back(places()), NotRun);
  EXPECT_EQ(read_file(tariffs()), "old");
  EXPECT_THAT(ran_, IsEmpty());
}

}  // namespace
}  // namespace quenby
