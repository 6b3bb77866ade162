#pragma once

#include "tc/device.h"
#include "tc/device_change.h"
#include "tc/device_tree.h"

/// Walks that turn values into requests, in the order that the kernel needs. Nothing is decided
/// here.
namespace quenby {

/// Makes the HTB root or the plain queue and the classes of the line.
void install_line(const Device& device, const DeviceTree& tree);
/// Makes the tariffs' classes with all that belongs to them.
void install_tariffs(const Device& device, const DeviceTree& tree);

/// The first level of an address tree.
void install_base(const Device& device, const AddressBase& base);
/// Class, filters and leaf. With `tolerate` a hash table that exists already is no failure.
void install_branch(const Device& device, const ClassBranch& branch, bool tolerate);
/// Leaf, filters and class.
void remove_branch(const Device& device, const RemovedBranch& branch);

/// All of a change but the path, which each kind of device has its own way to change.
void apply_change(const Device& device, const DeviceChange& change);

/// Whether the tree's last object stands, and its root. What was interrupted while it was built has
/// no last class yet.
bool tree_stands(const Device& device, const DeviceTree& tree);

}  // namespace quenby
