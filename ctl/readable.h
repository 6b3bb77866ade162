#pragma once

#include <string>

namespace quenby {

/// Throws `NotRun` when the caller may not read what is at the path: that says nothing about what
/// the program, which is run by root, makes of it.
void expect_readable(const std::string& path);

}  // namespace quenby
