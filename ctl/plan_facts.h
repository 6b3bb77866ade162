#pragma once

#include "ctl/plan_value.h"

namespace quenby {

/// What this router tells of the WAN interface that the edit names, by its kernel and its hardware
/// tool. The kernel shows an ordinary user no address set: for them everything stands.
PlanFacts facts_for(const Edit& edit);

}  // namespace quenby
