#pragma once

#include <functional>
#include <stdexcept>

namespace quenby {

/// The exit statuses of every subcommand.
enum Status { kFine = 0, kFindings = 1, kNotRun = 2 };

/// What `main` runs when the command line has been read.
using Work = std::function<Status()>;

/// Why a subcommand could not do its work, for people to read.
class NotRun : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace quenby
