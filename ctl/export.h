#pragma once

#include <string>
#include <vector>

#include "ctl/status.h"

namespace quenby {

struct ExportOptions {
  std::string format = "prometheus";
  /// The file that is written; empty for standard output.
  std::string output;
};

/// The subcommand `export`: counters and rates of all classes for programs.
Status export_counters(const ExportOptions& options);

/// What it can write.
std::vector<std::string> export_formats();

}  // namespace quenby
