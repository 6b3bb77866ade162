#pragma once

#include <cstdint>
#include <set>
#include <vector>

#include "model/resolved_settings.h"
#include "shaper/address_set.h"

namespace quenby {

/// Why a change of tariffs takes the way that it takes.
enum class ChangeReason {
  /// Only the changed tariffs' own objects differ.
  in_place,
  /// No tariff is left: the line alone.
  last_tariff,
  /// There was no tariff yet.
  first_tariff,
  /// The guarantees exceed a limit before or after the change, which scales those of all tariffs.
  oversubscribed,
  /// Neither direction has a tree, so there is nothing to change.
  unshaped,
  /// A direction goes from unshaped to shaped or back.
  tree_comes_or_goes,
  /// A blocked direction of the IMQ device has classes like any other, but none are added to it.
  blocked_imq,
  /// On the IMQ device an address of the change belongs to another tariff too.
  shared_address,
};

/// The reason in a few words.
const char* reason_text(ChangeReason reason);

/// What a change of tariffs comes to. Every set is ordered by name.
struct TariffChange {
  ChangeReason reason = ChangeReason::in_place;
  /// The running and the new configuration.
  ResolvedSettings before;
  ResolvedSettings after;
  /// The class numbers of the added tariffs.
  std::set<unsigned> added;
  /// Whether an IPv4 address of the change belongs to two tariffs, before it or after.
  bool shared = false;
  /// Entries of the address set for addresses that removed tariffs share with tariffs that stay.
  std::vector<AddressSetEntry> kept;
  /// Entries for added addresses that belong to another tariff in the end: of several tariffs with
  /// one address, the last by name has it.
  std::vector<AddressSetEntry> settled;
  /// The same for prefixes, where IPv6 is shaped.
  std::vector<PrefixSetEntry> kept_prefixes{};
  std::vector<PrefixSetEntry> settled_prefixes{};

  /// Whether everything has to be rebuilt, because more than the changed tariffs' own objects
  /// would differ.
  bool rebuild() const {
    return reason != ChangeReason::in_place && reason != ChangeReason::last_tariff;
  }
  /// What one direction has of the added tariffs.
  std::vector<ResolvedTariff> created(Direction way) const;
};

/// Works out a change. `g` and `current` are what the kernel holds now, as configured; a changed
/// tariff is in `removed` (its old record) and in `added` (its new one). All sets ordered by name,
/// `link_speed` in bytes per second.
TariffChange plan_change(const GlobalSet& g, const TariffSet& current, const TariffSet& removed,
                         const TariffSet& added, std::int64_t link_speed);

}  // namespace quenby
