#pragma once

#include <string>
#include <vector>

#include "config/ini_text.h"
#include "config/parse_error.h"

/// What a check finds in a file, and how it is shown.
namespace quenby {

enum class Severity { error, warning };

struct Finding {
  std::string file;
  /// Line 0 is the whole file.
  Position at;
  Severity severity = Severity::warning;
  /// What kind of finding it is, in a word that stays the same.
  std::string code;
  std::string text;
};

using Findings = std::vector<Finding>;

/// By place, those of the whole file first.
void sort_by_place(Findings& findings);

/// "FILE:LINE:COLUMN: error: TEXT", or "FILE: error: TEXT" for the whole file. Below it the source
/// line and a caret, without characters that a terminal would obey.
std::string to_text(const Finding& finding, const IniText* source, bool colours);

/// JSON: an object with the list "findings", each with "file", "line", "column", "severity", "code"
/// and "text"; line and column are null for the whole file.
std::string json_text(const Findings& findings);

}  // namespace quenby
