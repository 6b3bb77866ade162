#pragma once

#include <optional>
#include <string>

#include "config/ini_outline.h"
#include "config/line_reader.h"
#include "config/parse_error.h"
#include "model/shaper_config_interface.h"

namespace quenby {

/// One parse of a file into a configuration, which knows where it is. Lives for that parse; the
/// syntax is `TariffIniFile`'s.
class IniParser {
 public:
  /// What is accepted is also noted in `outline`, unless that is null.
  IniParser(LineReader& lines, ShaperConfigInterface& cfg, IniOutline* outline = nullptr)
      : lines_(lines), cfg_(cfg), outline_(outline) {}

  /// Reads to the end, or to the first line that is refused: why, in an error without the file's
  /// name.
  std::optional<ParseError> parse();

 private:
  bool parse_line(char* line);
  bool parse_header(char* line);
  bool parse_key(char* line);

  /// The first reason counts. Always false.
  bool refuse(Position at, const std::string& reason);
  bool refuse(const char* at, const std::string& reason);

  LineReader& lines_;
  ShaperConfigInterface& cfg_;
  IniOutline* outline_;
  std::optional<ParseError> error_;
  /// The section that is being read, and where its name stands.
  std::string section_;
  Position section_at_;
};

}  // namespace quenby
