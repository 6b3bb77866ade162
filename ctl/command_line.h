#pragma once

#include "ctl/status.h"

namespace quenby {

/// What the command line asks for. Help, and a complaint about a wrong call, are printed at once;
/// then the work is to give the exit status.
Work read_command_line(int argc, const char* const* argv);

}  // namespace quenby
