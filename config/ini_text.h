#pragma once

#include <optional>
#include <string>
#include <vector>

#include "config/ini_outline.h"
#include "config/parse_error.h"
#include "model/shaper_config_interface.h"

namespace quenby {

/// A file that was read once, a pipe too, and can be looked at again.
class IniText {
 public:
  IniText(std::string path, std::string text);

  const std::string& path() const { return path_; }

  /// The line of this number without its end; empty when there is none.
  std::string line(std::size_t number) const;

  /// As `TariffIniFile` does. What was accepted is noted in `outline` too, unless that is null.
  std::optional<ParseError> read_ini(ShaperConfigInterface& cfg,
                                     IniOutline* outline = nullptr) const;
  Position find_section(const std::string& name) const;

  /// The same file without what hangs on the line that was refused at `at`: that line, with a
  /// header the whole section, and above the first header all up to there. Other lines keep their
  /// numbers. Nothing for an error of the whole file.
  std::optional<IniText> without(Position at) const;

 private:
  std::string path_;
  std::string text_;
  std::vector<std::string> lines_;
};

/// Reads a file by the rules of `open_input`. An error when that does not succeed to its end.
std::optional<ParseError> read_text(const std::string& path, bool command_line,
                                    std::optional<IniText>& text);

}  // namespace quenby
