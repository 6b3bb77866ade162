#pragma once

#include <optional>
#include <string>

#include "config/ini_text.h"
#include "config/parse_error.h"
#include "config/paths.h"
#include "model/global_set.h"
#include "model/tariff_config.h"

/// What the operations work with, as values: where and why a file or its contents were refused.
/// Nothing here ends the process or says anything.
namespace quenby {

/// The result of reading a stored file.
struct StoredFile {
  /// Whether there is one; without one nothing was read, and that is no error.
  bool present = false;
  std::optional<ParseError> error;
};

StoredFile read_stored(GlobalSet& global, const std::string& folder = kConfigDirectory);
/// Orders the tariffs by name.
StoredFile read_stored(TariffConfig& tariffs, const std::string& folder = kConfigDirectory);

/// Renumbers the stored tariffs; an error when there are too many.
std::optional<ParseError> refill_numbers(TariffConfig& tariffs);

/// Brings the stored tariffs to the form in which the whole list is written. An error, with nothing
/// changed, when no reader would take a value back.
std::optional<ParseError> round_for_save(TariffConfig& tariffs);

/// Reads both stored files as `--load` does, but saves nothing: an error when it would refuse
/// the file, or its tariffs when it has to renumber them.
std::optional<ParseError> check_stored(GlobalSet& global,
                                       const std::string& folder = kConfigDirectory);
std::optional<ParseError> check_stored(TariffConfig& tariffs,
                                       const std::string& folder = kConfigDirectory);

/// The same for the tariffs of a file that is in memory. `outline` as for `IniText`.
std::optional<ParseError> check_stored(const IniText& text, TariffConfig& tariffs,
                                       IniOutline* outline);

/// Reads a file that the operator names, with values as a stored file holds them. Tariffs are
/// ordered by name; two of one name, or a value that cannot be stored, are errors.
std::optional<ParseError> read_named(const std::string& path, GlobalSet& global);
std::optional<ParseError> read_named(const std::string& path, TariffSet& tariffs);
/// The same for tariffs of a file that is in memory.
std::optional<ParseError> read_named(const IniText& text, TariffSet& tariffs, IniOutline* outline);

}  // namespace quenby
