#include "cli/edit_commands.h"

#include "cli/config_commands.h"
#include "cli/config_input.h"
#include "cli/error.h"
#include "config/system_config.h"
#include "shaper/htb_shaper.h"

namespace quenby {
namespace {

void number_new(TariffConfig& current, TariffSet& added) {
  if (!current.addIDs(added)) _error("wrong tariff configuration: already exists");
}

// Adds to a list whose class numbers fit.
void extend(const GlobalSet& global, TariffConfig& current, TariffSet& added) {
  number_new(current, added);
  if (global.global.enabled) {
    HtbShaper().add_tariffs(global, current, added);
    TariffSystemConfig().addSave(added);
  } else {
    prepare_whole_save(current);
    current.update(added, false, false);
    TariffSystemConfig().cfgSave(current);
  }
}

// Adds to a list that is new or renumbered, which everything is built from, enabled or not.
void start(const GlobalSet& global, TariffConfig& current, TariffSet& added) {
  number_new(current, added);
  if (current.update(added, false, true)) {
    clear_shaper(global);
    const TariffSet& all = current;
    HtbShaper().create(global, all);
  }
  TariffSystemConfig().cfgSave(current);
}

}  // namespace

void add_tariffs(const std::string& path) {
  TariffSet added;
  if (!read_tariff_file(path, added)) _error("wrong tariff configuration");
  auto [global, current, stored] = load_stored();
  if (stored && current.numbersFit()) return extend(global, current, added);
  renumber(current);
  start(global, current, added);
}

void delete_tariff(const std::string& name) {
  auto [global, current, stored] = load_stored();
  TariffSet removed;
  for (const TariffSettings& tariff : current.allOf(name)) removed.addTariff(tariff);
  if (removed.empty()) _error("tariff does not exist");
  if (global.global.enabled && !current.numbersFit()) {
    current.remove(removed);
    return rebuild_renumbered(global, current);
  }
  if (global.global.enabled) HtbShaper().del_tariffs(global, current, removed);
  current.remove(removed);
  if (current.empty()) {
    TariffSystemConfig::remove();
  } else {
    TariffSystemConfig().delSave(removed);
  }
}

void update_tariff(const std::string& path) {
  TariffSet list;
  if (!read_tariff_file(path, list)) _error("wrong new tariff configuration");
  auto [global, current, stored] = load_stored();
  if (!current.fillIDs(list, false)) _error("wrong new tariff configuration");
  if (global.global.enabled && !current.numbersFit()) {
    current.update(list, false, false);
    return rebuild_renumbered(global, current);
  }
  TariffSet removed;
  TariffSet added;
  collect_differences(current, list, removed, added);
  if (global.global.enabled) HtbShaper().update_tariffs(global, current, removed, added);
  TariffSystemConfig().updSave(list);
}

void delete_tariffs() {
  const GlobalSet global = load_line();
  clear_shaper(global);
  create_shaper(global, TariffSet());
  TariffSystemConfig::remove();
}

void update_global(const std::string& path) {
  GlobalSet global;
  if (!read_global_file(path, global)) _error("wrong new global configuration");
  TariffConfig current;
  load_tariff_config(current);
  const bool renumbered = renumber_unfit(current);
  stop_shaper();
  create_shaper(global, current);
  if (renumbered) TariffSystemConfig().cfgSave(current);
  GlobalSystemConfig().cfgSave(global);
}

void delete_global() {
  Stored stored = load_stored();
  const bool renumbered = renumber_unfit(stored.tariffs);
  HtbShaper().del_global(stored.global, stored.tariffs);
  if (renumbered) TariffSystemConfig().cfgSave(stored.tariffs);
  GlobalSystemConfig::remove();
}

}  // namespace quenby
