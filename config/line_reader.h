#pragma once

#include <array>
#include <string>

#include "config/input_file.h"
#include "config/parse_error.h"

namespace quenby {

/// Reads lines of at most 4095 characters: a longer one comes in pieces, each a line of its own. A
/// NUL byte ends a line's text.
class LineReader {
 public:
  /// Opens a regular file and nothing else; with `command_line`, which tells a file that the
  /// operator names from a stored one, also a pipe, which is waited for until it has a writer.
  LineReader(const std::string& path, bool command_line);
  /// Reads an open file; null is one that could not be opened, with `errno` set.
  explicit LineReader(InputFile file);

  bool is_open() const { return file_ != nullptr; }

  /// The next line that is not blank, without leading white space and valid until the next call.
  /// Null at the end of the file and when the rest of it cannot be read.
  char* next();

  /// Whether null meant the end of the file.
  bool at_end() const { return failure_.empty(); }

  /// Why the file could not be opened or read to its end; empty while nothing failed.
  const std::string& failure() const { return failure_; }

  /// Where `text`, a part of the line that `next` gave, stands in the file. The pieces of a long
  /// line have its number.
  Position position(const char* text) const;

  /// Whether the line that `next` gave is the rest of a long one.
  bool in_long_line() const { return before_ != 0; }

 private:
  /// Takes the next piece into `line_`, with its line end. False when there is none.
  bool read_piece();
  void begin_piece();

  std::string failure_;
  InputFile file_;
  std::array<char, 4096> line_{};
  std::size_t length_ = 0;
  bool line_ended_ = true;
  /// The number of the line that the piece belongs to, and how much of it came before.
  std::size_t number_ = 0;
  std::size_t before_ = 0;
};

}  // namespace quenby
