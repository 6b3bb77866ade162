#pragma once

#include <linux/netlink.h>

#include "tc/device.h"
#include "tc/htb_class.h"
#include "tc/nl_types.h"

/// Requests about the HTB classes of a device.
namespace quenby {

/// Makes a class.
void add_class(const Device& device, const HtbClass& values, int flags = NLM_F_CREATE);
/// Gives a class that stands other values; its packets and counters stay.
inline void replace_class(const Device& device, const HtbClass& values) {
  add_class(device, values, NLM_F_REPLACE);
}
/// Deletes it; one that is gone already is no failure. Nothing is asked when the device does not
/// exist.
void delete_class(const Device& device, const HtbClass& values);

/// What `add_class` sends.
MsgPtr class_request(const Device& device, const HtbClass& values);

/// Whether the device has a class of this handle; a doubt is a no.
bool class_stands(const Device& device, const HtbClass& values);

}  // namespace quenby
