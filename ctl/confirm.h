#pragma once

#include "ctl/status.h"

namespace quenby {

struct ConfirmOptions {
  bool json = false;
};

/// The subcommand `confirm`: keeps the change that waits for it. `kFindings` when none does.
Status confirm(const ConfirmOptions& options);

}  // namespace quenby
