#pragma once

#include <cstdint>
#include <vector>

#include "model/global_set.h"
#include "model/tariff_set.h"
#include "shaper/address_set.h"

namespace quenby {

/// What a change of tariffs comes to. Every set is ordered by name.
struct TariffChange {
  /// The global and default settings after rate resolution with the running and the new tariffs.
  GlobalSet before;
  GlobalSet after;
  /// All tariffs after the change, as configured.
  TariffSet tariffs;
  /// Those of the added tariffs, after rate resolution.
  TariffSet created;
  /// Entries of the address set for addresses that removed tariffs share with tariffs that stay.
  std::vector<AddressSetEntry> kept;
  /// Entries for added addresses that belong to another tariff in the end: of several tariffs with
  /// one address, the last by name has it.
  std::vector<AddressSetEntry> settled;
  /// Whether everything has to be built anew, because more than the changed tariffs' own objects
  /// would differ.
  bool rebuild = false;
};

/// Works out a change. `g` and `current` are what the kernel holds now, as configured; a changed
/// tariff is in `removed` (its old record) and in `added` (its new one). All sets ordered by name,
/// `link_speed` in bytes per second.
TariffChange plan_change(const GlobalSet& g, const TariffSet& current, const TariffSet& removed,
                         const TariffSet& added, std::int64_t link_speed);

/// Whether a direction's filter has to be remade after a change, and for what.
struct FilterUpdate {
  bool needed = false;
  /// The line is slower than the link.
  bool redirect = false;
};

/// `configured` is the direction's speed as configured, `previous` and `next` its speeds after rate
/// resolution before and after the change, all in bytes per second.
FilterUpdate filter_update(bool any_added, bool any_removed, std::int64_t configured,
                           std::int64_t previous, std::int64_t next, std::int64_t link_speed);

}  // namespace quenby
