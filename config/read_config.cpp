#include "config/read_config.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "config/system_config.h"
#include "model/class_numbers.h"
#include "model/stored_form.h"

namespace quenby {
namespace {

// A pipe is not waited for a second time.
Position place_of(const TariffIniFile& file, const std::string& name) {
  return TariffIniFile(file.path(), false).find_section(name);
}

Position place_of(const IniText& text, const std::string& name) { return text.find_section(name); }

// An error that shows in the whole list alone, at the last section of the name.
template <typename Source>
ParseError section_error(const Source& source, const std::string& name, const std::string& reason) {
  return {source.path(), place_of(source, name), "section " + quoted(name) + " " + reason};
}

template <typename Source>
std::optional<ParseError> storing_error(const Source& source, const TariffSet& tariffs) {
  const TariffSettings* const tariff = find_unstorable(tariffs);
  if (tariff == nullptr) return {};
  return section_error(
      source, tariff->name,
      "has a burst size above " + std::to_string(std::numeric_limits<std::int32_t>::max()));
}

// Needs the set ordered by name.
template <typename Source>
std::optional<ParseError> name_error(const Source& source, const TariffSet& tariffs) {
  const auto& list = tariffs.tariffs();
  const auto twice = std::adjacent_find(
      list.begin(), list.end(),
      [](const TariffSettings& a, const TariffSettings& b) { return a.name == b.name; });
  if (twice == list.end()) return {};
  return section_error(source, twice->name, "is in the file twice");
}

std::optional<ParseError> numbering_error(const std::string& path, TariffConfig& tariffs) {
  if (tariffs.refillIDs()) return {};
  return ParseError{
      path,
      {},
      "too many sections: the last class number of a tariff is " + std::to_string(kMaxTariffId)};
}

// What `--load` has against stored tariffs that were read, which it may have to renumber.
template <typename Source>
std::optional<ParseError> stored_error(const Source& source, TariffConfig& tariffs) {
  if (tariffs.numbersFit()) return {};
  if (auto error = numbering_error(source.path(), tariffs)) return error;
  if (auto error = storing_error(source, tariffs)) return error;
  round_to_stored(tariffs);
  return {};
}

// What every option has against the tariffs of a named file that were read.
template <typename Source>
std::optional<ParseError> named_error(const Source& source, TariffSet& tariffs) {
  tariffs.sort();
  if (auto error = name_error(source, tariffs)) return error;
  if (auto error = storing_error(source, tariffs)) return error;
  round_to_stored(tariffs);
  return {};
}

}  // namespace

StoredFile read_stored(GlobalSet& global, const std::string& folder) {
  if (GlobalSystemConfig::missing(folder)) return {};
  return {true, GlobalSystemConfig(folder).read_ini(global)};
}

StoredFile read_stored(TariffConfig& tariffs, const std::string& folder) {
  if (TariffSystemConfig::missing(folder)) return {};
  StoredFile file{true, TariffSystemConfig(folder).read_ini(tariffs)};
  tariffs.sort();
  return file;
}

std::optional<ParseError> refill_numbers(TariffConfig& tariffs) {
  return numbering_error(kTariffFile, tariffs);
}

std::optional<ParseError> round_for_save(TariffConfig& tariffs) {
  if (auto error = storing_error(TariffSystemConfig(), tariffs)) return error;
  round_to_stored(tariffs);
  return {};
}

std::optional<ParseError> check_stored(GlobalSet& global, const std::string& folder) {
  return read_stored(global, folder).error;
}

std::optional<ParseError> check_stored(TariffConfig& tariffs, const std::string& folder) {
  if (auto error = read_stored(tariffs, folder).error) return error;
  return stored_error(TariffSystemConfig(folder), tariffs);
}

std::optional<ParseError> check_stored(const IniText& text, TariffConfig& tariffs,
                                       IniOutline* outline) {
  if (auto error = text.read_ini(tariffs, outline)) return error;
  tariffs.sort();
  return stored_error(text, tariffs);
}

std::optional<ParseError> read_named(const std::string& path, GlobalSet& global) {
  if (auto error = TariffIniFile(path, true).read_ini(global)) return error;
  round_to_stored(global);
  return {};
}

std::optional<ParseError> read_named(const std::string& path, TariffSet& tariffs) {
  const TariffIniFile file(path, true);
  if (auto error = file.read_ini(tariffs)) return error;
  return named_error(file, tariffs);
}

std::optional<ParseError> read_named(const IniText& text, TariffSet& tariffs, IniOutline* outline) {
  if (auto error = text.read_ini(tariffs, outline)) return error;
  return named_error(text, tariffs);
}

}  // namespace quenby
