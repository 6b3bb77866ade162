#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "tc/device.h"
#include "tc/nl_types.h"
#include "tc/qdisc.h"

/// Requests about the qdiscs of a device.
namespace quenby {

/// Adds a qdisc. A leaf that stands already is no obstacle, of whatever kind it is.
void add_qdisc(const Device& device, const Qdisc& qdisc);
/// Deletes it; one that is gone already is no failure.
void delete_qdisc(const Device& device, const Qdisc& qdisc);

/// The same, with parameters that the caller puts into libnl's object.
void add_qdisc(const Device& device, const std::string& kind, std::uint32_t handle,
               std::uint32_t parent, const std::function<void(rtnl_qdisc*)>& setup);
void delete_qdisc(const Device& device, const std::string& kind, std::uint32_t handle,
                  std::uint32_t parent);

/// What adding a qdisc sends.
MsgPtr qdisc_request(const Device& device, const Qdisc& qdisc);

/// Deletes the device's root qdisc, unless it is the kernel's own. Never fatal but when the kernel
/// cannot list its qdiscs.
void delete_root_qdisc(const Device& device);

/// Whether the device has this very qdisc; a doubt is a no. Does not list any: a list has the
/// leaves of all devices in it.
bool qdisc_stands(const Device& device, const Qdisc& qdisc);

}  // namespace quenby
