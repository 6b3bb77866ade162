#pragma once

#include <optional>
#include <string>

namespace quenby {

/// Runs `command` through the shell and replaces `out` with the start of its standard output: what
/// one read of at most 1023 bytes delivers, up to the first NUL byte. The command's exit status is
/// not looked at. `out` is left as it was when the shell could not be started.
void _system(const std::string& command, std::string& out);

/// All that `command` prints to standard output; nothing when it cannot be started or ends with
/// another status than 0.
std::optional<std::string> read_command(const std::string& command);

/// Runs a list of shell commands with the program's own output streams. True when its status (which
/// is that of the list's last command) is 0.
bool run_commands(const std::string& commands);

/// The same. A status other than 0 ends the process with status 1 and no message: the commands
/// speak for themselves.
void run_or_exit(const std::string& commands);
/// The same; nothing for an empty list.
void run_list(const std::string& commands);

/// `text` as one word of a shell command. Ordinary device names (letters, digits and "._-@:") and
/// the empty text stand as they are; anything else is put in single quotes, so that no value of a
/// configuration file can run a command.
std::string shell_word(const std::string& text);

}  // namespace quenby
