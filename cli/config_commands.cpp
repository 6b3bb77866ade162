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
  Stored stored = load_stored();
  if (renumber_unfit(stored.tariffs)) TariffSystemConfig().cfgSave(stored.tariffs);
  if (!create_shaper(stored.global, stored.tariffs)) clear_shaper(stored.global);
}

void reload_config() {
  Stored stored = load_stored();
  rebuild_renumbered(stored.global, stored.tariffs);
}

void restore_config(const std::string& interface) {
  const std::string wan = load_line().global.wan;
  if (!wan.empty() && wan == interface) reload_config();
}

void update_config(const std::string& path) {
  TariffSet list;
  if (!read_tariff_file(path, list)) _error("wrong tariff configuration");
  auto [global, current, stored] = load_stored();
  if (!current.fillIDs(list, true)) _error("wrong new tariff configuration");
  if (stored && current.numbersFit()) return replace_differences(global, current, list);
  if (!current.refillIDs()) _error("wrong tariff configuration");
  current.update(list, true, false);
  rebuild_renumbered(global, current);
}

void stop_shaper() { clear_shaper(load_line()); }

void clear_config() {
  stop_shaper();
  TariffSystemConfig::clean();
  GlobalSystemConfig::clean();
}

void print_statistics() {
  const Stored stored = load_stored();
  if (!stored.tariffs.empty()) HtbShaper().class_stat(stored.global, stored.tariffs.orderedByID());
}

}  // namespace quenby
