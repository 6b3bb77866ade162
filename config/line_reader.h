#pragma once

#include <array>
#include <cstdio>
#include <memory>
#include <string>

namespace quenby {

/// Reads lines of at most 4095 characters: a longer one comes in pieces, each a line of its own. A
/// NUL byte ends a line's text.
class LineReader {
 public:
  /// Opens a regular file and nothing else; with `command_line`, which tells a file that the
  /// operator names from a stored one, also a pipe, which is waited for until it has a writer.
  LineReader(const std::string& path, bool command_line);

  bool is_open() const { return file_ != nullptr; }

  /// The next line that is not blank, without leading white space and valid until the next call.
  /// Null at the end of the file and when the rest of it cannot be read.
  char* next();

  /// Whether null meant the end of the file.
  bool at_end() const { return std::ferror(file_.get()) == 0; }

 private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  std::unique_ptr<std::FILE, Close> file_;
  std::array<char, 4096> line_{};
};

}  // namespace quenby
