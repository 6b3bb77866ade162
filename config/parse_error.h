#pragma once

#include <cstddef>
#include <string>

namespace quenby {

/// A place in a file. Lines and columns count from 1, columns in bytes. Line 0 is the whole file.
struct Position {
  std::size_t line = 0;
  std::size_t column = 0;

  bool operator==(const Position&) const = default;
};

/// Where and why a configuration file was refused, for people to read.
struct ParseError {
  std::string file;
  Position at;
  std::string reason;

  bool operator==(const ParseError&) const = default;

  /// "FILE:LINE:COLUMN: REASON", or "FILE: REASON" for the whole file.
  std::string text() const;
};

}  // namespace quenby
