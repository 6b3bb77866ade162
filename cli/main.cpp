#include <cstdlib>
#include <getopt.h>
#include <set>
#include <string>

#include "cli/config_commands.h"
#include "cli/edit_commands.h"
#include "cli/error.h"
#include "cli/options.h"
#include "cli/refused.h"
#include "cli/version.h"

namespace {

using namespace quenby;

// What the options leave for the end of the run.
struct Run {
  int status = 0;
  std::set<OptionCode> waiting;
  std::string interface;
};

// Performs what one option asks for. `argument` is its text, empty for options without.
void perform(OptionCode code, const std::string& argument, const Run& run) {
  switch (code) {
    case kUpdate:
      return update_config(argument);
    case kClear:
      return clear_config();
    case kStop:
      return stop_shaper();
    case kLoad:
      return load_config();
    case kReload:
      return reload_config();
    case kRestoreIfCfg:
      return restore_config(run.interface);
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
      return print_statistics();
    case kVersion:
      return print_version();
    case kIfName:
      return;
  }
}

// The text of an option's argument, which may be null.
std::string text_of(OptionCode code, const char* argument) {
  if (argument != nullptr) return argument;
  return code == kUpdate ? "/tmp/tc_tariff.ini" : "";
}

void perform_or_exit(OptionCode code, const std::string& argument, const Run& run) {
  try {
    perform(code, argument, run);
  } catch (const Refused& refused) {
    _error(refused.what());
  }
}

// Performs or notes an option. A code that no option has is one that getopt has complained about.
void serve(int code, const char* argument, Run& run) {
  for (const OptionSpec& spec : option_specs()) {
    if (spec.code != code) continue;
    const std::string text = text_of(spec.code, argument);
    if (spec.when == When::at_once) return perform_or_exit(spec.code, text, run);
    if (spec.when == When::value) {
      run.interface = text;
    } else {
      run.waiting.insert(spec.code);
    }
    return;
  }
  run.status = 1;
}

void serve_waiting(When when, const Run& run) {
  for (const OptionSpec& spec : option_specs()) {
    if (spec.when == when && run.waiting.count(spec.code) != 0) perform_or_exit(spec.code, "", run);
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
  serve_waiting(When::at_end, run);
  serve_waiting(When::last, run);
  return run.status;
}
