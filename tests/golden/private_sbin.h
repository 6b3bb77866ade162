#pragma once

#include <functional>
#include <string>

namespace golden {

/// What a piece of code did to a machine whose /sbin holds stand-ins for "tc" and "sudo" and
/// nothing else.
struct SbinRun {
  int status = -1;
  /// What `code` returned, and the command lines that the stand-ins were started with.
  std::string result;
  std::string commands;
  std::string errors;
};

/// Runs `code` in a child process with a /sbin and an empty /run of its own. The stand-ins note
/// their command lines; "tc" ends with `tc_status`. Throws when this machine lets us have no mounts
/// of our own: a test that does not run must not look like one that passed.
SbinRun run_with_private_sbin(int tc_status, const std::function<std::string()>& code);

/// Adds a line to the commands of the run that this process is.
void note_command(const std::string& line);

}  // namespace golden
