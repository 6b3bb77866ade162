#pragma once

#include <CLI/CLI.hpp>

#include "ctl/status.h"

namespace quenby {

/// Adds the subcommand `plan`, which becomes `work` when it is called.
void add_plan(CLI::App& app, Work& work);

}  // namespace quenby
