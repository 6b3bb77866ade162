#include "cli/edit_commands.h"

#include "cli/carry_out.h"
#include "cli/config_commands.h"
#include "cli/config_input.h"
#include "config/system_config.h"
#include "shaper/htb_shaper.h"

namespace quenby {

void add_tariffs(const std::string& path) { carry_out(edit_of_add(path)); }

void delete_tariff(const std::string& name) { carry_out(edit_of_delete(name)); }

void update_tariff(const std::string& path) { carry_out(edit_of_tariff_update(path)); }

void delete_tariffs() {
  const GlobalSet global = load_line();
  clear_shaper(global);
  create_shaper(global, TariffSet());
  TariffSystemConfig::remove();
}

void update_global(const std::string& path) { carry_out(edit_of_global_update(path)); }

void delete_global() {
  Stored stored = load_stored();
  const bool renumbered = renumber_unfit(stored.tariffs);
  HtbShaper().del_global(stored.global, stored.tariffs);
  if (renumbered) TariffSystemConfig().cfgSave(stored.tariffs);
  GlobalSystemConfig::remove();
}

}  // namespace quenby
