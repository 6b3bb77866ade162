#pragma once

#include <string>
#include <vector>

#include "ctl/status.h"

namespace quenby {

struct TopOptions {
  /// Seconds between two looks.
  double interval = 1;
  bool once = false;
  bool json = false;
  /// What is shown at first.
  std::string order = "rate";
  std::string filter;
};

/// The subcommand `top`: shows live, or once, what every tariff uses.
Status top(const TopOptions& options);

/// The names of its orders.
std::vector<std::string> top_orders();

}  // namespace quenby
