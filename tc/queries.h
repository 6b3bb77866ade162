#pragma once

#include <cstdint>

#include "tc/device.h"
#include "tc/nl_types.h"

/// Requests for one object, which libnl has no functions for.
namespace quenby {

/// A request for one qdisc of a device. The kernel acknowledges it when the qdisc at `parent` has
/// this handle and kind and refuses it otherwise. Null when memory is exhausted.
MsgPtr qdisc_query(int ifindex, const char* kind, std::uint32_t handle, std::uint32_t parent);

/// The same for one class under the HTB root or one of its classes.
MsgPtr class_query(int ifindex, std::uint32_t handle, std::uint32_t parent);

/// Sends a request; false for a null one and for whatever is no acknowledgement.
bool is_acknowledged(const Device& device, MsgPtr query);

}  // namespace quenby
