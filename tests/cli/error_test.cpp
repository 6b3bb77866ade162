#include "cli/error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <stdexcept>

namespace quenby {
namespace {

using testing::Eq;
using testing::ExitedWithCode;

TEST(Error, PrintsTheMessageAndExitsWith1) {
  EXPECT_EXIT(_error("missing argument"), ExitedWithCode(1), Eq("Error: missing argument\n"));
  EXPECT_EXIT(_error(""), ExitedWithCode(1), Eq("Error: \n"));
}

TEST(Error, PutsAColonAndTheExceptionsTextAfterTheMessage) {
  EXPECT_EXIT(_error("failed to copy configuration", std::runtime_error("disk full")),
              ExitedWithCode(1), Eq("Error: failed to copy configuration:disk full\n"));
}

TEST(Error, TakesMessagesAsTheyStand) {
  EXPECT_EXIT(_error("%s %n 100%"), ExitedWithCode(1), Eq("Error: %s %n 100%\n"));
}

TEST(Error, FailsSilentlyWhereTheReasonHasBeenShown) {
  EXPECT_EXIT(fail_silently("a command failed"), ExitedWithCode(1), Eq(""));
}

class FailureHandlerTest : public testing::Test {
 protected:
  FailureHandlerTest() {
    set_failure_handler([](const std::string& message) { throw std::runtime_error(message); });
  }
  ~FailureHandlerTest() override { set_failure_handler(nullptr); }
};

TEST_F(FailureHandlerTest, GetsTheMessageInsteadOfTheEnd) {
  const auto thrown = [](auto call) -> std::string {
    try {
      call();
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "nothing";
  };
  EXPECT_EQ(thrown([] { _error("missing argument"); }), "missing argument");
  EXPECT_EQ(thrown([] { _error("no", std::runtime_error("disk full")); }), "no:disk full");
  EXPECT_EQ(thrown([] { fail_silently("a command failed"); }), "a command failed");
  set_failure_handler(nullptr);
  EXPECT_EXIT(_error("again"), ExitedWithCode(1), Eq("Error: again\n"));
}

}  // namespace
}  // namespace quenby
