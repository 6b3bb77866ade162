#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "tc/device_tree.h"
#include "tc/u32_inventory.h"

/// What a change of tariffs comes to on one device in one direction, as a value.
namespace quenby {

/// What goes of a tariff: the leaf first, then the filters, by their handles, and the class last.
struct RemovedBranch {
  HtbClass htb;
  std::optional<Qdisc> leaf;
  std::vector<std::uint32_t> filters;
};

/// A tariff of the change: what it had and what it is to have. With both, the one follows the other
/// at once, as the tariff's packets take the default class in between.
struct BranchChange {
  std::optional<RemovedBranch> removed;
  std::optional<ClassBranch> created;
};

struct DeviceChange {
  /// New values of the root class, which come first.
  std::optional<HtbClass> root;
  /// The first level of the address tree, where it is missing.
  std::optional<AddressBase> base;
  std::vector<BranchChange> branches;
  /// How packets come to the classes from now on, where that changes.
  std::optional<MarkPath> path;
};

/// The tariffs that go, as they were stored, and what comes in one direction. Nothing goes without
/// `remove`.
struct TariffDifference {
  const TariffSet& removed;
  std::vector<ResolvedTariff> added;
  bool remove = true;
};

/// Base and branches of a change. `standing` are the filters that the device has. `has_tree` is
/// false where there is no device to make a wanted tree on: a device that classifies by mark then
/// loses branches all the same.
DeviceChange branch_changes(const Side& side, const ResolvedLine& line, bool has_tree,
                            const TariffDifference& tariffs, const U32Inventory& standing);

/// Whether how packets come to a direction's classes has to be remade after a change.
/// `configured` is the direction's speed as configured, `previous` and `next` its resolved speeds
/// before and after the change, all in bytes per second.
bool path_changes(bool any_added, bool any_removed, std::int64_t configured, std::int64_t previous,
                  std::int64_t next);

/// The line before and after a change of tariffs. Speeds in bytes per second.
struct LineChange {
  /// Resolved for the tariffs after the change.
  const ResolvedLine& next;
  /// The direction's speed as it was resolved for those before it.
  std::int64_t previous = 0;
  /// The direction's speed as configured.
  std::int64_t configured = 0;
  /// The burst in bytes that the root class has to cover after the change.
  std::int64_t burst = 0;
};

/// All of a change: branches, and what of the line changes with them.
DeviceChange device_change(const Side& side, const LineChange& line, bool has_tree,
                           const TariffDifference& tariffs, const U32Inventory& standing);

}  // namespace quenby
