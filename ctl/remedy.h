#pragma once

#include <string>

#include "tc/drift.h"

namespace quenby {

inline constexpr const char* kRepair = "quenbyctl repair";

/// What mends a difference: mostly `kRepair`, and otherwise what has to be done by hand, as shell
/// commands or in words.
std::string remedy_of(const Drift& drift);

}  // namespace quenby
