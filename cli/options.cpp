#include "cli/options.h"

namespace quenby {

const std::vector<OptionSpec>& option_specs() {
  static const std::vector<OptionSpec> kSpecs = {
      {"update", required_argument, kUpdate, When::at_once},
      {"clear", no_argument, kClear, When::at_once},
      {"stop", no_argument, kStop, When::at_once},
      {"load", no_argument, kLoad, When::at_once},
      {"reload", no_argument, kReload, When::at_once},
      {"restore-if-cfg", no_argument, kRestoreIfCfg, When::last},
      {"tariff-add", required_argument, kTariffAdd, When::at_once},
      {"tariff-del", required_argument, kTariffDel, When::at_once},
      {"tariff-update", required_argument, kTariffUpdate, When::at_once},
      {"tariffs-del", no_argument, kTariffsDel, When::at_once},
      {"global-update", required_argument, kGlobalUpdate, When::at_once},
      {"global-del", no_argument, kGlobalDel, When::at_once},
      {"stat", no_argument, kStat, When::at_end},
      {"version", no_argument, kVersion, When::at_once},
      {"if-name", required_argument, kIfName, When::value},
  };
  return kSpecs;
}

const std::vector<option>& option_table() {
  static const std::vector<option> kOptions = [] {
    std::vector<option> options;
    for (const OptionSpec& spec : option_specs())
      options.push_back({spec.name, spec.argument, nullptr, spec.code});
    options.push_back({nullptr, 0, nullptr, 0});
    return options;
  }();
  return kOptions;
}

}  // namespace quenby
