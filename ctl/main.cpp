#include <iostream>
#include <malloc.h>

#include "cli/error.h"
#include "ctl/command_line.h"

namespace {

using namespace quenby;

// Memory that was freed is used again, not handed back to the kernel: with thousands of tariffs,
// one long list follows another, and each fresh page costs a fault.
void keep_memory() {
  constexpr int kLargest = 32 << 20;
  mallopt(M_MMAP_THRESHOLD, kLargest);
  mallopt(M_TRIM_THRESHOLD, kLargest);
}

[[noreturn]] void throw_not_run(const std::string& message) { throw NotRun(message); }

}  // namespace

int main(int argc, char* argv[]) {
  keep_memory();
  Status status = kNotRun;
  set_failure_handler(throw_not_run);
  try {
    status = read_command_line(argc, argv)();
    std::cout << std::flush;
  } catch (const std::exception& e) {
    std::cerr << "quenbyctl: " << e.what() << '\n';
  }
  // What was not printed was not said.
  if (std::cout.good()) return status;
  std::cerr << "quenbyctl: cannot write to standard output\n";
  return kNotRun;
}
