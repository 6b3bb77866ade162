#include "ctl/held_signals.h"

#include <array>
#include <csignal>

namespace quenby {
namespace {

struct Named {
  int signal;
  const char* name;
};
constexpr std::array<Named, 3> kEnding = {
    {{SIGINT, "SIGINT"}, {SIGQUIT, "SIGQUIT"}, {SIGTERM, "SIGTERM"}}};

}  // namespace

void hold_signals() {
  for (const int lost : {SIGHUP, SIGPIPE}) std::signal(lost, SIG_IGN);
  sigset_t ending;
  sigemptyset(&ending);
  for (const Named& each : kEnding) sigaddset(&ending, each.signal);
  sigprocmask(SIG_BLOCK, &ending, nullptr);
}

std::string held_signal() {
  sigset_t pending;
  if (sigpending(&pending) != 0) return {};
  for (const Named& each : kEnding) {
    if (sigismember(&pending, each.signal) == 1) return each.name;
  }
  return {};
}

}  // namespace quenby
