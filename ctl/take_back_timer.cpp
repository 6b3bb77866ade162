#include "ctl/take_back_timer.h"

#include <cstdlib>
#include <unistd.h>

#include "cli/system.h"
#include "ctl/program.h"
#include "ctl/status.h"

namespace quenby {
namespace {

std::string unit(const std::string& id) { return shell_word("quenby-take-back-" + id); }

bool succeeds(const std::string& command) {
  return read_command(command + " >/dev/null 2>&1").has_value();
}

// What the program calls is looked for where the caller would find it.
std::string callers_path() {
  const char* const path = std::getenv("PATH");
  return path == nullptr ? "" : " --setenv=" + shell_word(std::string("PATH=") + path);
}

// A process that is killed while it takes the change back is started again.
std::string timer_command(const std::string& id, std::chrono::seconds time) {
  return "systemd-run --quiet --collect --unit=" + unit(id) +
         " --on-active=" + std::to_string(time.count()) +
         " --timer-property=AccuracySec=100ms"
         " --property=Restart=on-failure --property=RestartSec=1"
         " --description='A change of the traffic shaping is taken back'" +
         callers_path() + " " + shell_word(own_path()) + " apply --take-back --when-due";
}

}  // namespace

bool has_timers() { return access("/run/systemd/system", F_OK) == 0; }

void start_timer(const std::string& id, std::chrono::seconds time) {
  const std::string command = timer_command(id, time);
  if (!succeeds(command)) throw NotRun("cannot start a timer: " + command);
}

void stop_timer(const std::string& id) {
  if (has_timers()) succeeds("systemctl stop " + unit(id) + ".timer");
}

}  // namespace quenby
