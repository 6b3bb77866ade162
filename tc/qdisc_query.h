#pragma once

#include <cstdint>

#include "tc/nl_types.h"

namespace quenby {

/// A request for one qdisc of a device. The kernel acknowledges it when the qdisc at `parent` has
/// this handle and kind and refuses it otherwise. Null when memory is exhausted.
MsgPtr qdisc_query(int ifindex, const char* kind, std::uint32_t handle, std::uint32_t parent);

}  // namespace quenby
