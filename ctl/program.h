#pragma once

#include <string>
#include <vector>

namespace quenby {

/// This program. Throws `NotRun` where the system does not tell.
std::string own_path();

/// The program itself, not the launcher: the installed one, or the one that was built beside this.
/// Throws `NotRun` when there is none.
std::string program_path();

/// Runs the program and waits until it and whatever it has started have ended. Both get the
/// descriptor `lock`, so that nobody else begins while one of them lives. Keys of the terminal and
/// its loss do not reach them. What they say goes to standard error. Throws `NotRun` unless its
/// exit status is 0.
void run_program(const std::vector<std::string>& arguments, int lock);

}  // namespace quenby
