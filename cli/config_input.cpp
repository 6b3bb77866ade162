#include "cli/config_input.h"

#include "cli/refused.h"
#include "config/read_config.h"

namespace quenby {
namespace {

bool shaped_alike(const TariffSettings& one, const TariffSettings& other, bool ipv6) {
  if (ipv6 || one == other) return one == other;
  TariffSettings same = other;
  same.prefixes = one.prefixes;
  return one == same;
}

}  // namespace

bool load_global_config(GlobalSet& global) {
  const StoredFile file = read_stored(global);
  if (file.error) throw Refused("wrong global configuration", file.error);
  return file.present;
}

bool load_tariff_config(TariffConfig& tariffs) {
  const StoredFile file = read_stored(tariffs);
  if (file.error) throw Refused("wrong current tariff configuration", file.error);
  return file.present;
}

Stored load_stored() {
  Stored stored;
  stored.global = load_line();
  stored.has_tariffs = load_tariff_config(stored.tariffs);
  return stored;
}

GlobalSet load_line() {
  GlobalSet global;
  load_global_config(global);
  return global;
}

bool renumber_unfit(TariffConfig& tariffs) {
  if (tariffs.numbersFit()) return false;
  renumber(tariffs);
  return true;
}

void prepare_whole_save(TariffConfig& tariffs) {
  if (const auto error = round_for_save(tariffs))
    throw Refused("wrong current tariff configuration", error);
}

void renumber(TariffConfig& tariffs) {
  if (const auto error = refill_numbers(tariffs))
    throw Refused("wrong tariff configuration", error);
  prepare_whole_save(tariffs);
}

void collect_differences(const TariffConfig& current, const TariffSet& list, bool ipv6,
                         TariffSet& removed, TariffSet& added) {
  for (const TariffSettings& tariff : list.tariffs()) {
    const auto stored = current.allOf(tariff.name);
    if (stored.size() == 1 && shaped_alike(stored.front(), tariff, ipv6)) continue;
    for (const TariffSettings& former : stored) removed.addTariff(former);
    added.addTariff(tariff);
  }
}

}  // namespace quenby
