#pragma once

#include <ostream>
#include <string>

#include "tc/device_change.h"
#include "tc/device_tree.h"

/// Values as text, one line per object, with handles as tc prints them. The same tree always has
/// the same text.
namespace quenby {

/// A filter in a few words, "u32 3:7:7 at 12 match 10.0.16.7 class 8000:4".
std::string match_text(const U32Filter& filter);

/// Every object of a tree in the order in which it is made.
void write_tree(std::ostream& out, const std::string& device, const DeviceTree& tree);
/// Every request of a change in order, after the word "replace", "delete" or "create".
void write_change(std::ostream& out, const std::string& device, const DeviceChange& change);

}  // namespace quenby
