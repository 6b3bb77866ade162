#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "model/resolved_settings.h"
#include "tc/address_tree.h"
#include "tc/htb_class.h"
#include "tc/qdisc.h"

/// What one direction of a device is to hold, as values. Which classes, leaves and filters there
/// are is decided here and nowhere else; nothing here needs a socket. Requests are a walk over
/// these values (tc/tree_walk.h).
namespace quenby {

/// Which settings a tree follows, and how its device numbers its classes.
struct Side {
  HandleScheme scheme = HandleScheme::mark;
  Direction way = Direction::upload;

  bool by_mark() const { return scheme == HandleScheme::mark; }
};

/// The side of the WAN or IFB device, and of the IMQ device.
Side mark_side(Direction way);
Side imq_side(Direction way);

/// A class with what leads packets to it and the queue under it.
struct ClassBranch {
  HtbClass htb;
  /// By address, on the IMQ device only; elsewhere the mark names the class.
  std::vector<AddressFilters> matches;
  std::optional<Qdisc> leaf;
};

/// How packets come to the classes of a device that classifies by mark.
struct MarkPath {
  /// The classifier of the HTB root.
  bool classifier = false;
  /// The device whose incoming traffic is shaped here; empty for none.
  std::string feeder;
  /// The shell command by which it feeds this device; empty when it is not to.
  std::string feed;
  /// Whether IPv6 has classifiers too.
  bool ipv6 = false;
  /// The shell commands by which its IPv6 feeds this device; empty as above.
  std::string ip6_feed{};
};

/// The first level of an address tree.
struct AddressBase {
  U32Table table;
  U32Filter link;
};

struct DeviceTree {
  /// The ingress qdisc of the WAN device.
  std::optional<Qdisc> ingress;
  /// HTB or the plain queue; none where the direction is not shaped, or where the other direction
  /// of the same device has it.
  std::optional<Qdisc> root;
  /// The root class first, then the default and default tariff's.
  std::vector<ClassBranch> line;
  MarkPath path;
  std::optional<AddressBase> base;
  std::vector<ClassBranch> tariffs;
};

/// The whole tree of one direction of a device that exists or will be made.
DeviceTree device_tree(const Side& side, const ResolvedSettings& settings);

// Its parts.

/// Whether the configuration gives this direction an HTB tree, whatever the kernel holds.
bool wants_tree(const Side& side, const ResolvedLine& line);
/// How packets come to the classes. `marked` tells that packets carry marks.
MarkPath mark_path(const Side& side, const ResolvedLine& line, bool marked);
/// The first level of the address tree, where some tariff or the line itself is shaped.
std::optional<AddressBase> address_base(const Side& side, const ResolvedLine& line,
                                        const std::vector<ResolvedTariff>& tariffs);
/// One tariff's branch, without its addresses.
ClassBranch tariff_branch(const Side& side, const ResolvedTariff& t);
/// What leads packets of its addresses to its class: nothing on a device that classifies by mark.
std::vector<AddressFilters> address_matches(const Side& side, const ResolvedTariff& t,
                                            AddressTree& known);
/// The branches of a direction's tariffs; none where it has no tree.
std::vector<ClassBranch> tariff_branches(const Side& side, const ResolvedDirection& direction,
                                         AddressTree& known);

}  // namespace quenby
