#pragma once

#include <string>
#include <vector>

#include "cli/edit.h"

/// The commands that `plan` foresees and `apply` carries out: options of the program, without the
/// dashes.
namespace quenby {

struct Command {
  std::string name = "load";
  /// A file or a tariff's name; empty for a command without.
  std::string argument;
};

/// The names of all commands.
std::vector<std::string> command_names();

/// What the command is going to do. Throws `Refused` where the program would refuse it; `NotRun`
/// for a wrong call of `subcommand` and for a file that the caller may not read.
Edit edit_of(const Command& command, const std::string& subcommand);

/// Whether the command's argument is a file.
bool reads_file(const Command& command);

/// The same as the program's own arguments.
std::vector<std::string> program_arguments(const Command& command);

/// As it was given, in one line.
std::string to_text(const Command& command);

}  // namespace quenby
