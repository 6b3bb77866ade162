#include "cli/carry_out.h"

#include "cli/config_commands.h"
#include "config/system_config.h"
#include "shaper/htb_shaper.h"

namespace quenby {
namespace {

void change_kernel(const Edit& edit) {
  switch (edit.work) {
    case KernelWork::none:
      return;
    case KernelWork::change:
      warn_of_unshaped_ipv6(edit.line);
      return HtbShaper().update_tariffs(edit.line, edit.stored, edit.removed, edit.added);
    case KernelWork::rebuild:
      clear_shaper(edit.line_before);
      create_shaper(edit.line, edit.tariffs);
      return;
    case KernelWork::rebuild_always: {
      clear_shaper(edit.line_before);
      warn_of_unshaped_ipv6(edit.line);
      const TariffSet& all = edit.tariffs;
      return HtbShaper().create(edit.line, all);
    }
    case KernelWork::build:
      if (!create_shaper(edit.line, edit.tariffs)) clear_shaper(edit.line);
      return;
  }
}

void save_tariffs(const Edit& edit) {
  switch (edit.save) {
    case TariffSave::none:
    case TariffSave::whole_first:
      return;
    case TariffSave::whole:
      return TariffSystemConfig().cfgSave(edit.tariffs);
    case TariffSave::append:
      return TariffSystemConfig().addSave(edit.added);
    case TariffSave::replace:
      return TariffSystemConfig().updSave(edit.given);
    case TariffSave::remove:
      if (edit.tariffs.empty()) return TariffSystemConfig::remove();
      return TariffSystemConfig().delSave(edit.removed);
  }
}

}  // namespace

void carry_out(const Edit& edit) {
  if (edit.save == TariffSave::whole_first) TariffSystemConfig().cfgSave(edit.tariffs);
  change_kernel(edit);
  save_tariffs(edit);
  if (edit.save_line) GlobalSystemConfig().cfgSave(edit.line);
}

}  // namespace quenby
