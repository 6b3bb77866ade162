#pragma once

#include <functional>
#include <string>

namespace golden {

/// What a piece of code did to a machine whose /sbin holds a stand-in for "tc" and nothing else.
struct SbinRun {
  int status = -1;
  /// What `code` returned, and the command lines that "tc" was started with.
  std::string result;
  std::string commands;
  std::string errors;
};

/// Runs `code` in a child process with a /sbin of its own. The stand-in notes its command line and
/// ends with `tc_status`. Throws when this machine lets us have no mounts of our own: a test that
/// does not run must not look like one that passed.
SbinRun run_with_private_sbin(int tc_status, const std::function<std::string()>& code);

}  // namespace golden
