#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "shaper/address_set.h"
#include "shaper/desired_state.h"
#include "shaper/session.h"
#include "tc/class_counters.h"
#include "tc/drift.h"

/// In what the kernel differs from the state that it should hold.
namespace quenby {

/// What has to be done about the address set, beside saying so.
template <typename Key>
struct SetDriftOf {
  std::vector<Drift> found;
  bool make = false;
  /// Entries that are missing or have another mark, and addresses that are not wanted.
  std::vector<SetEntry<Key>> put;
  std::vector<Key> drop;
};

using SetDrift = SetDriftOf<std::uint32_t>;
using PrefixSetDrift = SetDriftOf<Ip6Prefix>;

struct StateDrift {
  /// The note of IPv6 where it is missing. It comes back before any object.
  std::vector<Drift> note{};
  std::vector<Drift> devices;
  SetDrift set;
  PrefixSetDrift prefix_set{};
  /// Those of firewall and packet steering.
  std::vector<Drift> commands;

  /// All of it, in that order.
  std::vector<Drift> all() const;
};

/// What the kernel should hold. Without `shaped` it is nothing, whatever the state says but for the
/// names of its devices.
struct WantedState {
  DesiredState state;
  bool shaped = true;
  /// The configured WAN interface; empty for none, and then the IMQ device is shaped.
  std::string wan;
};

/// Which entries the set lacks or has too many. Of several entries for an address the last counts,
/// as it does in the kernel. `standing` is nothing where there is no set.
SetDrift set_drift(const std::vector<AddressSetEntry>& wanted, bool needed,
                   const std::optional<StandingSet>& standing);
PrefixSetDrift prefix_set_drift(const std::vector<PrefixSetEntry>& wanted, bool needed,
                                const std::optional<StandingPrefixSet>& standing);

/// What is read to find the differences, for who wants it beside them. Asking twice would take a
/// kernel with many classes twice the time.
struct KernelReading {
  std::optional<StandingSet> set;
  /// Not asked for where IPv6 is not shaped and nothing of it is left.
  std::optional<StandingPrefixSet> prefix_set;
  /// Of the devices that are to be shaped.
  CounterLists counters;
};

/// Asks the kernel for everything. Failure ends the process.
StateDrift find_drift(const Session& session, const WantedState& wanted,
                      KernelReading* reading = nullptr);

}  // namespace quenby
