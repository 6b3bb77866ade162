#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ctl/status.h"

namespace quenby {

/// What came of a change.
struct Outcome {
  enum class Kind {
    /// The change is made.
    applied,
    /// It is made, and taken back unless it is confirmed.
    waiting,
    confirmed,
    /// Files and kernel are the former ones.
    taken_back,
    /// The program would refuse it; nothing was changed.
    refused,
    /// There is no change that could be confirmed or taken back.
    none,
    /// It could not be taken back wholly.
    stuck,
  };
  Kind kind = Kind::applied;
  std::string command;
  /// Why it was taken back, refused, or is stuck.
  std::string reason;
  /// What the kernel differed by from the files, a line each.
  std::vector<std::string> differences;
  /// For how many seconds it waits.
  std::optional<std::int64_t> seconds;
};

/// Prints it, as JSON or as text: what went well on standard output, the rest on standard error.
void show(const Outcome& outcome, bool json);

}  // namespace quenby
