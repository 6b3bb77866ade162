#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace quenby {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using InputFile = std::unique_ptr<std::FILE, CloseFile>;

/// Opens a regular file and nothing else; with `command_line`, which tells a file that the operator
/// names from a stored one, also a pipe, which is waited for until it has a writer. Null, with the
/// reason in `failure`, when that is not possible.
InputFile open_input(const std::string& path, bool command_line, std::string& failure);

/// Reads a text, for as long as it is there. Null with `errno` set when memory is short.
InputFile open_text(const std::string& text);

/// What the system's error number says of a read that failed.
std::string read_failure();

}  // namespace quenby
