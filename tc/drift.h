#pragma once

#include <string>
#include <vector>

#include "tc/mending.h"

namespace quenby {

enum class DriftKind { missing, different, unwanted };

/// "missing", "different" or "unwanted".
const char* drift_kind_name(DriftKind kind);

/// In what the kernel differs from what it should hold, and what mends it.
struct Drift {
  DriftKind kind = DriftKind::missing;
  /// The device, or "set", "firewall" or "steering".
  std::string place;
  std::string object;
  /// What is different; empty for the other kinds.
  std::string detail;
  /// Requests to the device in their order; none where this program does not know how.
  std::vector<Mending> mendings;
  /// To be mended last: what nothing may lead to any more when it goes.
  bool last = false;
};

/// "missing: eth1 class 8000:4", "different: eth1 class 8000:4: rate ...".
std::string to_text(const Drift& drift);

}  // namespace quenby
