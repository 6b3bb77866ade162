#include <cstdlib>
#include <getopt.h>
#include <string>

#include "cli/config_commands.h"
#include "cli/edit_commands.h"
#include "cli/error.h"
#include "cli/options.h"
#include "cli/version.h"

namespace {

using namespace quenby;

// What the options leave for the end of the run.
struct Run {
  int status = 0;
  bool statistics = false;
  bool restore = false;
  std::string interface;
};

// Performs or notes what one option asks for. `argument` is its text, null for options without.
void serve(int code, const char* argument, Run& run) {
  switch (code) {
    case kUpdate:
      return update_config(argument != nullptr ? argument : "/tmp/tc_tariff.ini");
    case kClear:
      return clear_config();
    case kStop:
      return stop_shaper();
    case kLoad:
      return load_config();
    case kReload:
      return reload_config();
    case kRestoreIfCfg:
      run.restore = true;
      return;
    case kTariffAdd:
      return add_tariffs(argument);
    case kTariffDel:
      return delete_tariff(argument);
    case kTariffUpdate:
      return update_tariff(argument);
    case kTariffsDel:
      return delete_tariffs();
    case kGlobalUpdate:
      return update_global(argument);
    case kGlobalDel:
      return delete_global();
    case kStat:
      run.statistics = true;
      return;
    case kVersion:
      return print_version();
    case kIfName:
      run.interface = argument;
      return;
    default:
      run.status = 1;
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc < 2) _error("missing argument");
  // The order of options and other words is the same on every machine.
  unsetenv("POSIXLY_CORRECT");
  Run run;
  int code = 0;
  while ((code = getopt_long_only(argc, argv, "", option_table().data(), nullptr)) != -1)
    serve(code, optarg, run);
  if (run.statistics) print_statistics();
  if (run.restore) restore_config(run.interface);
  return run.status;
}
