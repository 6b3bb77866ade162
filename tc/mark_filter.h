#pragma once

#include <linux/filter.h>

#include <array>
#include <cstdint>

#include "tc/nl_types.h"

namespace quenby {

/// A classic-BPF program that sends a packet whose mark has bit 31 set to the class that the rest
/// of our mark bits name. It stands in for the fw classifier with a mask, which mainline kernels
/// refuse to add without a handle.
std::array<sock_filter, 5> mark_program();

/// A request to add a "bpf" classifier with `mark_program()` under the HTB qdisc of a device, for
/// packets of `protocol` (an ETH_P_ number, host order); libnl has no object for it. Null when
/// memory is exhausted.
MsgPtr mark_program_request(int ifindex, std::uint16_t prio, std::uint16_t protocol);

}  // namespace quenby
