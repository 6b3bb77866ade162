#pragma once

#include <string>

#include "ctl/status.h"

namespace quenby {

/// Files in the places of the stored ones; empty for those.
struct CheckOptions {
  std::string global;
  std::string tariffs;
  /// "named" or "stored"; empty for what fits each file.
  std::string kind;
  bool json = false;

  bool names_a_file() const { return !global.empty() || !tariffs.empty(); }
};

/// The subcommand `check`: says where the program would refuse a file, and what is surely not
/// meant.
Status check(const CheckOptions& options);

}  // namespace quenby
