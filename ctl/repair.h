#pragma once

#include <string>
#include <vector>

#include "ctl/kernel_drift.h"
#include "ctl/status.h"

namespace quenby {

/// What was mended, and what this program does not know how to mend.
struct RepairResult {
  std::vector<Drift> mended;
  std::vector<Drift> left;
  /// What went wrong meanwhile.
  std::vector<std::string> failures;
};

/// The differences of `before` that are not found again.
std::vector<Drift> mended(const std::vector<Drift>& before, const std::vector<Drift>& left);

/// Brings the kernel to what is asked for, and with `connections` the marks of open connections. A
/// list of class numbers that do not fit is stored with new ones first. Throws `NotRun` where the
/// kernel cannot be asked.
RepairResult repair_kernel(const Asked& asked, bool connections);

struct RepairOptions {
  /// Open connections keep the marks that they have.
  bool no_connections = false;
  bool json = false;
};

/// The subcommand `repair`: brings the kernel to the stored files, and says what it has mended.
/// `kFindings` where differences are left.
Status repair(const RepairOptions& options);

}  // namespace quenby
