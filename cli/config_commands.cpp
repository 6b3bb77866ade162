#include "cli/config_commands.h"

#include "cli/config_input.h"
#include "cli/error.h"
#include "config/system_config.h"
#include "shaper/htb_shaper.h"

namespace quenby {
namespace {

// Changes only what differs between `current` and `list`.
void replace_differences(const GlobalSet& global, TariffConfig& current, const TariffSet& list) {
  TariffSet removed;
  TariffSet added;
  collect_differences(current, list, removed, added);
  for (const TariffSettings& tariff : current.tariffs()) {
    if (!list.exists(tariff.name)) removed.addTariff(tariff);
  }
  removed.sort();
  if (global.global.enabled) HtbShaper().update_tariffs(global, current, removed, added);
  if (!current.update(list, true, false)) _error("wrong tariff configuration");
  TariffSystemConfig().cfgSave(current);
}

}  // namespace

void clear_shaper(const GlobalSet& global) { HtbShaper().clear(global); }

bool create_shaper(const GlobalSet& global, const TariffSet& tariffs) {
  const bool configured = global.has_global || global.has_default || !tariffs.empty();
  if (!global.global.enabled || !configured) return false;
  HtbShaper().create(global, tariffs);
  return true;
}

void rebuild_renumbered(const GlobalSet& global, TariffConfig& tariffs) {
  renumber(tariffs);
  clear_shaper(global);
  create_shaper(global, tariffs);
  TariffSystemConfig().cfgSave(tariffs);
}

void load_config() {
  GlobalSet global;
  load_global_config(global);
  TariffConfig tariffs;
  if (load_numbered_tariffs(tariffs)) TariffSystemConfig().cfgSave(tariffs);
  if (!create_shaper(global, tariffs)) clear_shaper(global);
}

void reload_config() {
  GlobalSet global;
  load_global_config(global);
  TariffConfig tariffs;
  load_tariff_config(tariffs);
  rebuild_renumbered(global, tariffs);
}

void restore_config(const std::string& interface) {
  GlobalSet global;
  load_global_config(global);
  if (!global.global.wan.empty() && global.global.wan == interface) reload_config();
}

void update_config(const std::string& path) {
  TariffSet list;
  if (!read_tariff_file(path, list)) _error("wrong tariff configuration");
  GlobalSet global;
  load_global_config(global);
  TariffConfig current;
  const bool stored = load_tariff_config(current);
  if (!current.fillIDs(list, true)) _error("wrong new tariff configuration");
  if (stored && current.numbersFit()) return replace_differences(global, current, list);
  if (!current.refillIDs()) _error("wrong tariff configuration");
  current.update(list, true, false);
  rebuild_renumbered(global, current);
}

void stop_shaper() {
  GlobalSet global;
  load_global_config(global);
  clear_shaper(global);
}

void clear_config() {
  stop_shaper();
  TariffSystemConfig::clean();
  GlobalSystemConfig::clean();
}

void print_statistics() {
  GlobalSet global;
  load_global_config(global);
  TariffConfig tariffs;
  load_tariff_config(tariffs);
  if (!tariffs.empty()) HtbShaper().class_stat(global, tariffs.orderedByID());
}

}  // namespace quenby
