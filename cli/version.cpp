#include "cli/version.h"

#include <netlink/cli/utils.h>
#include <sys/wait.h>

#include <cstdio>
#include <iostream>
#include <unistd.h>

namespace quenby {

const char* version() { return QUENBY_VERSION; }

void print_version() {
  std::cout << "Copyright (C) 2026 The Quenby authors" << std::endl;
  std::cout << "Quenby version " << version() << std::endl;
  libnl_version();
}

void libnl_version() {
  std::cout << std::flush;
  std::fflush(stdout);
  // The library's function ends the process that calls it, and the run has to go on.
  const pid_t child = fork();
  if (child == 0) {
    nl_cli_print_version();
    _exit(0);
  }
  if (child > 0) waitpid(child, nullptr, 0);
}

}  // namespace quenby
