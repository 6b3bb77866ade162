#pragma once

#include <functional>
#include <string>
#include <vector>

namespace quenby {

/// What a change does to the kernel and asks of it. Each may throw `NotRun`.
struct KernelAccess {
  /// Runs the program with these arguments.
  std::function<void(const std::vector<std::string>& arguments)> run;
  /// What the kernel differs by from the stored files, a line each.
  std::function<std::vector<std::string>()> differences;
  /// Brings it to the stored files.
  std::function<void()> repair;
};

/// Of this router. `lock` is the descriptor of the lock of all runs, which the program gets.
KernelAccess kernel_access(int lock);

}  // namespace quenby
