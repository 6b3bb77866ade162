#include "ctl/kernel_access.h"

#include "ctl/kernel_drift.h"
#include "ctl/program.h"
#include "ctl/repair.h"

namespace quenby {
namespace {

std::vector<std::string> differences() {
  std::vector<std::string> lines;
  for (const Drift& drift : drift_from_files()) lines.push_back(to_text(drift));
  return lines;
}

// Where something is left the program builds everything.
void repair_or_build(int lock) {
  try {
    if (repair_kernel(read_asked(), true).left.empty()) return;
  } catch (const std::exception&) {
    // The next run of the program says what is the matter.
  }
  run_program({"--stop", "--load"}, lock);
}

}  // namespace

KernelAccess kernel_access(int lock) {
  KernelAccess access;
  access.run = [lock](const std::vector<std::string>& arguments) { run_program(arguments, lock); };
  access.differences = differences;
  access.repair = [lock] { repair_or_build(lock); };
  return access;
}

}  // namespace quenby
