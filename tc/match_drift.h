#pragma once

#include <string>
#include <vector>

#include "tc/device_tree.h"
#include "tc/drift.h"
#include "tc/standing_device.h"

/// The u32 tables and filters by which the IMQ device classifies by address.
namespace quenby {

/// What makes all of a tree's.
void add_matches(const DeviceTree& tree, Mendings& mendings);

/// Appends to `found` in what those of `place` differ from those of the trees. Which node of its
/// bucket a filter has does not matter.
void match_drift(const std::string& place, const std::vector<const DeviceTree*>& trees,
                 const std::vector<StandingFilter>& standing, std::vector<Drift>& found);

}  // namespace quenby
