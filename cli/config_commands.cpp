#include "cli/config_commands.h"

#include "cli/error.h"
#include "cli/stored_config.h"
#include "config/system_config.h"
#include "shaper/htb_shaper.h"

namespace quenby {

void clear_shaper(const GlobalSet& global) { HtbShaper().clear(global); }

void load_config() {
  GlobalSet global;
  load_global_config(global);
  TariffConfig tariffs;
  if (load_tariff_config(tariffs) && !tariffs.checkID()) {
    if (!tariffs.refillIDs()) _error("wrong tariff configuration");
    TariffSystemConfig().cfgSave(tariffs);
  }
  const bool configured = global.has_global || global.has_default || !tariffs.empty();
  if (global.global.enabled && configured) {
    HtbShaper().create(global, tariffs);
  } else {
    clear_shaper(global);
  }
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

}  // namespace quenby
