#pragma once

#include <optional>
#include <string>

#include "config/line_reader.h"
#include "config/parse_error.h"
#include "config/paths.h"
#include "model/shaper_config_interface.h"
#include "model/tariff_set.h"

namespace quenby {

/// An INI file: "[name]" headers and "key=value" lines, no comments. Keys are case-insensitive,
/// names and values are not. Text after "]" is ignored; a key or value may not be empty.
///
/// The file at the path is replaced by a rename once a complete new one is on the disk, so that it
/// is always either the old or the new one, and keeps its owner and mode. A failed save ends the
/// process through `_error`.
class TariffIniFile {
 public:
  /// `command_line` tells a file that the operator names from a stored one. `folder` is the one of
  /// the stored files, which a whole save makes where it is missing.
  TariffIniFile(const std::string& path, bool command_line,
                const std::string& folder = kConfigDirectory);
  virtual ~TariffIniFile() = default;
  TariffIniFile(const TariffIniFile&) = default;
  TariffIniFile& operator=(const TariffIniFile&) = default;

  /// Reads the file into `cfg`. False when it cannot be opened or is no regular file, or pipe that
  /// the operator names (`cfg` untouched), and at the first line that cannot be read, is malformed
  /// or that `cfg` refuses; what stood above that line stays in `cfg`.
  bool parse_ini(ShaperConfigInterface& cfg);
  /// The same, with where and why; nothing when the file was accepted.
  std::optional<ParseError> read_ini(ShaperConfigInterface& cfg) const;

  /// Where the name stands in the last header that has it. The whole file when there is none, or it
  /// cannot be read.
  Position find_section(const std::string& name) const;

  const std::string& path() const { return path_; }

  /// Takes the name out of a header line's text after its "[". False when there is none.
  static bool parse_section(char* text, std::string& name);

  /// The first character of `text` that is not white space.
  static char* trim_left(char* text);
  /// Ends the text after its last character that is not white space, `end` being its terminating
  /// NUL. Returns `begin`.
  static char* trim_right(char* begin, char* end);
  static char* trim_right(char* begin);

  /// Copies this file to `out_path` (truncated first) without the sections named in `set`, without
  /// blank lines and with bare headers. False when a file cannot be opened, read to its end or
  /// written or a header is malformed. Needs `set` sorted.
  bool modify_ini(const TariffSet& set, const std::string& out_path);

  /// Replaces the file by `cfg`.
  void cfgSave(const ShaperConfigInterface& cfg);

  /// Replaces the sections named in `set`: they go to the end of the file, and every other section
  /// is kept. Needs `set` sorted.
  void updSave(const TariffSet& set);

 protected:
  const std::string& folder() const { return folder_; }

 private:
  std::string path_;
  bool command_line_;
  std::string folder_;
};

/// Where the name stands in the last header that has it, of the lines that are left. The whole file
/// when there is none, or it cannot be read.
Position find_section(LineReader& lines, const std::string& name);

}  // namespace quenby
