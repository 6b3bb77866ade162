#include "cli/options.h"

namespace quenby {

const std::vector<option>& option_table() {
  static const std::vector<option> kOptions = {
      {"update", required_argument, nullptr, kUpdate},
      {"clear", no_argument, nullptr, kClear},
      {"stop", no_argument, nullptr, kStop},
      {"load", no_argument, nullptr, kLoad},
      {"reload", no_argument, nullptr, kReload},
      {"restore-if-cfg", no_argument, nullptr, kRestoreIfCfg},
      {"tariff-add", required_argument, nullptr, kTariffAdd},
      {"tariff-del", required_argument, nullptr, kTariffDel},
      {"tariff-update", required_argument, nullptr, kTariffUpdate},
      {"tariffs-del", no_argument, nullptr, kTariffsDel},
      {"global-update", required_argument, nullptr, kGlobalUpdate},
      {"global-del", no_argument, nullptr, kGlobalDel},
      {"stat", no_argument, nullptr, kStat},
      {"version", no_argument, nullptr, kVersion},
      {"if-name", required_argument, nullptr, kIfName},
      {nullptr, 0, nullptr, 0},
  };
  return kOptions;
}

}  // namespace quenby
