#include "config/read_config.h"

#include <algorithm>

#include "config/paths.h"
#include "config/system_config.h"
#include "model/stored_form.h"

namespace quenby {
namespace {

// An error that shows in the whole list alone, at the last section of the name.
ParseError section_error(const std::string& path, const std::string& name,
                         const std::string& reason) {
  return {path, TariffIniFile(path, false).find_section(name),
          "section " + quoted(name) + " " + reason};
}

std::optional<ParseError> storing_error(const std::string& path, const TariffSet& tariffs) {
  const TariffSettings* const tariff = find_unstorable(tariffs);
  if (tariff == nullptr) return {};
  return section_error(path, tariff->name, "has a burst size above 2147483647");
}

// Needs the set ordered by name.
std::optional<ParseError> name_error(const std::string& path, const TariffSet& tariffs) {
  const auto& list = tariffs.tariffs();
  const auto twice = std::adjacent_find(
      list.begin(), list.end(),
      [](const TariffSettings& a, const TariffSettings& b) { return a.name == b.name; });
  if (twice == list.end()) return {};
  return section_error(path, twice->name, "is in the file twice");
}

}  // namespace

StoredFile read_stored(GlobalSet& global) {
  if (GlobalSystemConfig::missing()) return {};
  return {true, GlobalSystemConfig().read_ini(global)};
}

StoredFile read_stored(TariffConfig& tariffs) {
  if (TariffSystemConfig::missing()) return {};
  StoredFile file{true, TariffSystemConfig().read_ini(tariffs)};
  tariffs.sort();
  return file;
}

std::optional<ParseError> refill_numbers(TariffConfig& tariffs) {
  if (tariffs.refillIDs()) return {};
  return ParseError{
      kTariffFile, {}, "too many sections: the last class number of a tariff is 15999"};
}

std::optional<ParseError> round_for_save(TariffConfig& tariffs) {
  if (auto error = storing_error(kTariffFile, tariffs)) return error;
  round_to_stored(tariffs);
  return {};
}

std::optional<ParseError> check_stored(GlobalSet& global) { return read_stored(global).error; }

std::optional<ParseError> check_stored(TariffConfig& tariffs) {
  if (auto error = read_stored(tariffs).error) return error;
  if (tariffs.numbersFit()) return {};
  if (auto error = refill_numbers(tariffs)) return error;
  return round_for_save(tariffs);
}

std::optional<ParseError> read_named(const std::string& path, GlobalSet& global) {
  if (auto error = TariffIniFile(path, true).read_ini(global)) return error;
  round_to_stored(global);
  return {};
}

std::optional<ParseError> read_named(const std::string& path, TariffSet& tariffs) {
  if (auto error = TariffIniFile(path, true).read_ini(tariffs)) return error;
  tariffs.sort();
  if (auto error = name_error(path, tariffs)) return error;
  if (auto error = storing_error(path, tariffs)) return error;
  round_to_stored(tariffs);
  return {};
}

}  // namespace quenby
