#pragma once

#include "tc/device.h"
#include "tc/htb_class.h"

/// Requests about the HTB classes of a device.
namespace quenby {

void add_class(const Device& device, const HtbClass& values);
/// Gives a class that stands other values; its packets and counters stay.
void replace_class(const Device& device, const HtbClass& values);
/// Deletes it; one that is gone already is no failure. Nothing is asked when the device does not
/// exist.
void delete_class(const Device& device, const HtbClass& values);

/// Whether the device has a class of this handle; a doubt is a no.
bool class_stands(const Device& device, const HtbClass& values);

}  // namespace quenby
