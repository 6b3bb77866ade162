#pragma once

#include "ctl/command.h"
#include "ctl/status.h"

namespace quenby {

struct PlanOptions {
  Command command;
  bool json = false;
};

/// The subcommand `plan`: says what a command would do, and does nothing.
Status plan(const PlanOptions& options);

}  // namespace quenby
