#pragma once

#include <string>
#include <vector>

#include "shaper/session.h"
#include "shaper/state_drift.h"

namespace quenby {

/// Brings the kernel to what it should hold with the fewest requests: what is right is not touched.
/// Addresses leave the set before their classes go, and enter it when the new ones stand. For a
/// program whose failures are thrown: one that fails keeps nothing else from being mended. The
/// failures' messages.
std::vector<std::string> repair(Session& session, const StateDrift& drift);

/// Gives every live connection the mark of its addresses by now; one that has it costs no request.
void repair_connections(const Session& session, const WantedState& wanted);

}  // namespace quenby
