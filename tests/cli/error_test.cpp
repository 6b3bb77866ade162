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

TEST(Error, PutsAColonAndTheExceptionsTextBehindTheMessage) {
  EXPECT_EXIT(_error("failed to copy configuration", std::runtime_error("disk full")),
              ExitedWithCode(1), Eq("Error: failed to copy configuration:disk full\n"));
}

TEST(Error, TakesMessagesAsTheyStand) {
  EXPECT_EXIT(_error("%s %n 100%"), ExitedWithCode(1), Eq("Error: %s %n 100%\n"));
}

}  // namespace
}  // namespace quenby
