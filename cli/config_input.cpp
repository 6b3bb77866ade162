#include "cli/config_input.h"

#include <algorithm>

#include "cli/error.h"
#include "config/system_config.h"
#include "model/stored_form.h"

namespace quenby {
namespace {

// Needs the set ordered by name.
bool names_differ(const TariffSet& set) {
  const auto& list = set.tariffs();
  return std::adjacent_find(list.begin(), list.end(),
                            [](const TariffSettings& a, const TariffSettings& b) {
                              return a.name == b.name;
                            }) == list.end();
}

}  // namespace

bool load_global_config(GlobalSet& global) {
  if (GlobalSystemConfig::missing()) return false;
  if (!GlobalSystemConfig().parse_ini(global)) _error("wrong global configuration");
  return true;
}

bool load_tariff_config(TariffConfig& tariffs) {
  if (TariffSystemConfig::missing()) return false;
  if (!TariffSystemConfig().parse_ini(tariffs)) _error("wrong current tariff configuration");
  tariffs.sort();
  return true;
}

bool load_numbered_tariffs(TariffConfig& tariffs) {
  if (!load_tariff_config(tariffs) || tariffs.numbersFit()) return false;
  number_anew(tariffs);
  return true;
}

void prepare_whole_save(TariffConfig& tariffs) {
  if (!can_be_stored(tariffs)) _error("wrong current tariff configuration");
  round_to_stored(tariffs);
}

void number_anew(TariffConfig& tariffs) {
  if (!tariffs.refillIDs()) _error("wrong tariff configuration");
  prepare_whole_save(tariffs);
}

bool read_tariff_file(const std::string& path, TariffSet& tariffs) {
  if (!TariffIniFile(path, true).parse_ini(tariffs)) return false;
  tariffs.sort();
  if (!names_differ(tariffs) || !can_be_stored(tariffs)) return false;
  round_to_stored(tariffs);
  return true;
}

bool read_global_file(const std::string& path, GlobalSet& global) {
  if (!TariffIniFile(path, true).parse_ini(global)) return false;
  round_to_stored(global);
  return true;
}

void collect_differences(const TariffConfig& current, const TariffSet& list, TariffSet& removed,
                         TariffSet& added) {
  for (const TariffSettings& tariff : list.tariffs()) {
    const auto stored = current.allOf(tariff.name);
    if (stored.size() == 1 && stored.front() == tariff) continue;
    for (const TariffSettings& former : stored) removed.addTariff(former);
    added.addTariff(tariff);
  }
}

}  // namespace quenby
