#pragma once

#include <getopt.h>
#include <vector>

namespace quenby {

/// The codes of the command line's options.
enum OptionCode {
  kReload = 1000,
  kUpdate = 1001,
  kLoad = 1002,
  kClear = 1003,
  kStop = 1004,
  kRestoreIfCfg = 1005,
  kTariffAdd = 1006,
  kTariffDel = 1007,
  kTariffUpdate = 1008,
  kTariffsDel = 1009,
  kGlobalUpdate = 1010,
  kGlobalDel = 1011,
  kStat = 1012,
  kIfName = 1013,
  kVersion = 1014,
};

/// The option table in the form that `getopt_long_only` wants, its end mark included.
const std::vector<option>& option_table();

}  // namespace quenby
