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

/// When the operation of an option is performed. What runs at the end runs once, however often the
/// option was given.
enum class When {
  /// Where the option stands.
  at_once,
  /// After the last option.
  at_end,
  /// After those.
  last,
  /// Never: it only has a value for another one.
  value,
};

struct OptionSpec {
  const char* name;
  /// `no_argument` or `required_argument`.
  int argument;
  OptionCode code;
  When when;
};

/// Every option, in the order in which people are told about them.
const std::vector<OptionSpec>& option_specs();

/// The same in the form that `getopt_long_only` wants, its end mark included.
const std::vector<option>& option_table();

}  // namespace quenby
