#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "ctl/status.h"

namespace quenby {

/// What `main` runs when the command line has been read.
using Work = std::function<Status()>;

/// Adds the subcommand `check`, which becomes `work` when it is called.
void add_check(CLI::App& app, Work& work);

}  // namespace quenby
