#pragma once

#include <string>
#include <vector>

#include "ctl/status.h"

namespace quenby {

struct WhoOptions {
  std::vector<std::string> addresses;
  bool json = false;
};

/// The subcommand `who`: says of each address whose it is, in the files, in the address set, by its
/// classes and by its open connections. `kFindings` where they disagree.
Status who(const WhoOptions& options);

}  // namespace quenby
