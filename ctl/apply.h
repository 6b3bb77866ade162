#pragma once

#include <optional>

#include "ctl/command.h"
#include "ctl/status.h"

namespace quenby {

/// In seconds.
inline constexpr unsigned kLongestConfirmation = 86400;

struct ApplyOptions {
  /// Without a name where a change is taken back.
  Command command{"", ""};
  /// How many seconds the change waits for its confirmation.
  std::optional<unsigned> confirm;
  /// Takes the recorded change back, with `when_due` once its time has come.
  bool take_back = false;
  bool when_due = false;
  bool json = false;
};

/// The subcommand `apply`: has the program do a command and takes it back if anything fails.
/// `kFindings` when it was refused or taken back.
Status apply(const ApplyOptions& options);

}  // namespace quenby
