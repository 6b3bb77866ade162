#pragma once

#include <CLI/CLI.hpp>

#include "ctl/status.h"

namespace quenby {

/// Adds the subcommand `check`, which becomes `work` when it is called.
void add_check(CLI::App& app, Work& work);

}  // namespace quenby
