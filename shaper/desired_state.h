#pragma once

#include <string>
#include <vector>

#include "model/resolved_settings.h"
#include "shaper/address_set.h"
#include "tc/device_tree.h"

/// All that the kernel is to hold for a configuration, as one value. Every command that builds
/// anything builds this.
namespace quenby {

/// What a state depends on beside the configuration.
struct RouterFacts {
  /// Whether there is a device of the configured WAN name.
  bool has_wan = false;
  /// The hardware tool's board name, untrimmed.
  std::string board;
};

struct DesiredState {
  /// The devices' names; empty trees where there is no WAN device to put them on.
  std::string upload_device;
  std::string download_device;
  DeviceTree upload;
  DeviceTree download;
  /// The address set's entries; none where the IMQ device is shaped.
  std::vector<AddressSetEntry> addresses;
  /// Those of the set of IPv6; none where it is not shaped.
  std::vector<PrefixSetEntry> prefixes{};
  /// The shell commands that put our rules into the firewall, and those of packet steering. Each a
  /// list joined with ";", or empty.
  std::string firewall;
  std::string steering;
  /// Those of ip6tables; empty where IPv6 is not shaped.
  std::string ip6_firewall{};
  /// Whether IPv6 is shaped too.
  bool ipv6 = false;

  const DeviceTree& tree(Direction way) const {
    return way == Direction::download ? download : upload;
  }
};

DesiredState desired_state(const ResolvedSettings& settings, const RouterFacts& facts);

/// One line per object, in the order in which they are made:
///
///   eth1 class 8000:4 parent 8000:1 rate 250000 ceil 500000 burst 60000 cburst 120000 quantum
///   25000
///
/// Rates in bytes per second, bursts in bytes.
std::string to_text(const DesiredState& state);

}  // namespace quenby
