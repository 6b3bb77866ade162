#include "cli/stored_config.h"

#include "cli/error.h"
#include "config/system_config.h"

namespace quenby {

bool load_global_config(GlobalSet& global) {
  if (!GlobalSystemConfig::exists()) return false;
  if (!GlobalSystemConfig().parse_ini(global)) _error("wrong global configuration");
  return true;
}

bool load_tariff_config(TariffConfig& tariffs) {
  if (!TariffSystemConfig::exists()) return false;
  if (!TariffSystemConfig().parse_ini(tariffs)) _error("wrong current tariff configuration");
  tariffs.sort();
  return true;
}

}  // namespace quenby
