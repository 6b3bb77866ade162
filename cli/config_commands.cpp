#include "cli/config_commands.h"

#include <iostream>

#include "cli/carry_out.h"
#include "cli/config_input.h"
#include "config/system_config.h"
#include "shaper/htb_shaper.h"

namespace quenby {
void clear_shaper(const GlobalSet& global) { HtbShaper().clear(global); }

bool create_shaper(const GlobalSet& global, const TariffSet& tariffs) {
  if (!is_shaped(global, tariffs)) return false;
  warn_of_unshaped_ipv6(global);
  HtbShaper().create(global, tariffs);
  return true;
}

void warn_of_unshaped_ipv6(const GlobalSet& global) {
  static bool said = false;
  if (said || !global.global.ipv6 || global.global.shapes_ipv6()) return;
  said = true;
  std::cerr << "IPv6 is not shaped: no WAN interface is named\n";
}

void load_config() { carry_out(edit_of_load()); }

void reload_config() { carry_out(edit_of_reload()); }

void restore_config(const std::string& interface) {
  const std::string wan = load_line().global.wan;
  if (!wan.empty() && wan == interface) reload_config();
}

void update_config(const std::string& path) { carry_out(edit_of_update(path)); }

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
