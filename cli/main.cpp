#include <getopt.h>
#include <string>

#include "cli/config_commands.h"
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

// Performs or notes what one option asks for.
void serve(int code, Run& run) {
  switch (code) {
    case kClear:
      return clear_config();
    case kStop:
      return stop_shaper();
    case kLoad:
      return load_config();
    case kVersion:
      return print_version();
    case kStat:
      run.statistics = true;
      return;
    case kRestoreIfCfg:
      run.restore = true;
      return;
    case kIfName:
      run.interface = optarg;
      return;
    case kReload:
    case kUpdate:
    case kTariffAdd:
    case kTariffDel:
    case kTariffUpdate:
    case kTariffsDel:
    case kGlobalUpdate:
    case kGlobalDel:
      _error("operation not available");
    default:
      run.status = 1;
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc < 2) _error("missing argument");
  Run run;
  int code = 0;
  while ((code = getopt_long_only(argc, argv, "", option_table().data(), nullptr)) != -1)
    serve(code, run);
  if (run.statistics || run.restore) _error("operation not available");
  return run.status;
}
