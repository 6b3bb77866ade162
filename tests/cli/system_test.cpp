#include "cli/system.h"

#include <sys/resource.h>

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>

namespace quenby {
namespace {

using testing::Eq;
using testing::ExitedWithCode;

std::string output_of(const std::string& command) {
  std::string out = "before";
  _system(command, out);
  return out;
}

TEST(System, ReplacesTheWholeTextByTheOutput) {
  EXPECT_EQ(output_of("printf abc"), "abc");
  EXPECT_EQ(output_of("echo abc"), "abc\n");
  EXPECT_EQ(output_of("printf '  a\\nb  '"), "  a\nb  ");
  EXPECT_EQ(output_of("true"), "");
}

TEST(System, RunsTheCommandThroughTheShell) {
  EXPECT_EQ(output_of("echo 'Speed: 2500Mb/s' | awk '{print $2}'"), "2500Mb/s\n");
  EXPECT_EQ(output_of("echo a; echo b"), "a\nb\n");
}

TEST(System, DoesNotLookAtTheExitStatus) {
  EXPECT_EQ(output_of("printf abc; exit 3"), "abc");
  EXPECT_EQ(output_of("exit 127"), "");
}

TEST(System, DoesNotReadStandardError) { EXPECT_EQ(output_of("echo hidden 2>/dev/null 1>&2"), ""); }

TEST(System, EndsAtTheFirstNul) { EXPECT_EQ(output_of("printf 'a\\0b'"), "a"); }

TEST(System, KeepsAtMost1023Bytes) {
  EXPECT_EQ(output_of("printf '%1023s' x"), std::string(1022, ' ') + "x");
  EXPECT_EQ(output_of("printf '%1024s' x"), std::string(1023, ' '));
  EXPECT_EQ(output_of("printf '%5000s' x"), std::string(1023, ' '));
}

TEST(System, LeavesTheTextAloneWhenThereIsNoPipe) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 0;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const std::string out = output_of("printf abc");
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(out, "before");
}

TEST(RunOrExit, GoesOnAfterSuccess) {
  // In a process of its own, whose end another status than the commands' would tell.
  const auto run = [](const std::string& commands) {
    run_or_exit(commands);
    std::cerr << "went on\n";
    std::exit(7);
  };
  EXPECT_EXIT(run("true"), ExitedWithCode(7), Eq("went on\n"));
  EXPECT_EXIT(run("false; true"), ExitedWithCode(7), Eq("went on\n"));
  EXPECT_EXIT(run("printf done >&2"), ExitedWithCode(7), Eq("donewent on\n"));
}

TEST(RunOrExit, ExitsWith1AndNoMessageOfItsOwn) {
  EXPECT_EXIT(run_or_exit("exit 3"), ExitedWithCode(1), Eq(""));
  EXPECT_EXIT(run_or_exit("true; false"), ExitedWithCode(1), Eq(""));
  EXPECT_EXIT(run_or_exit("kill -TERM $$"), ExitedWithCode(1), Eq(""));
}

TEST(RunOrExit, LetsTheCommandsSpeakForThemselves) {
  EXPECT_EXIT(run_or_exit("echo no such chain >&2; exit 1"), ExitedWithCode(1),
              Eq("no such chain\n"));
}

TEST(RunOrExit, WritesOutWhatWasPrintedBefore) {
  testing::internal::CaptureStdout();
  std::cout << "first ";
  run_or_exit("printf second");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "first second");
}

TEST(ReadCommand, GivesAllOfTheOutput) {
  EXPECT_EQ(read_command("printf '%5000s' x"), std::string(4999, ' ') + "x");
  EXPECT_EQ(read_command("printf 'a\\0b'"), std::string("a\0b", 3));
  EXPECT_EQ(read_command("true"), "");
}

TEST(ReadCommand, GivesNothingOfACommandThatFails) {
  EXPECT_EQ(read_command("echo abc; exit 3"), std::nullopt);
  EXPECT_EQ(read_command("kill $$"), std::nullopt);
}

}  // namespace
}  // namespace quenby
