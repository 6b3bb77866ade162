#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "model/family.h"
#include "tc/device.h"
#include "tc/htb_class.h"
#include "tc/nl_types.h"
#include "tc/qdisc.h"
#include "tc/u32_filter.h"

/// The single requests by which what a device holds is brought to what it should hold, as values.
namespace quenby {

/// Makes the virtual device, up and with the queue that shaping wants.
struct MakeDevice {
  const char* kind = "";
};
struct DropDevice {};
struct RaiseDevice {};

struct DropRoot {};
struct MakeQdisc {
  Qdisc qdisc;
};
struct DropQdisc {
  std::string kind;
  std::uint32_t handle = 0;
  std::uint32_t parent = 0;
};

struct MakeClass {
  HtbClass htb;
};
/// The class keeps its queue and its counters.
struct ChangeClass {
  HtbClass htb;
};
struct DropClass {
  std::uint32_t handle = 0;
  std::uint32_t parent = 0;
};

struct MakeTable {
  U32Table table;
};
struct MakeMatch {
  U32Filter match;
};
/// The classifier by mark, of IPv4 or IPv6.
struct MakeClassifier {
  Family family = Family::ipv4;
};
/// The filter of neighbour and router discovery.
struct MakeDiscovery {};
struct DropFilter {
  std::string kind;
  std::uint32_t parent = 0;
  std::uint32_t handle = 0;
  unsigned prio = 0;
  /// An ETH_P_ number, host order.
  unsigned protocol = 0;
};

/// A shell command. Its status does not matter: a look afterwards tells more.
struct RunCommand {
  std::string command;
};

using Mending = std::variant<MakeDevice, DropDevice, RaiseDevice, DropRoot, MakeQdisc, DropQdisc,
                             MakeClass, ChangeClass, DropClass, MakeTable, MakeMatch,
                             MakeClassifier, MakeDiscovery, DropFilter, RunCommand>;
/// In the order in which they are sent.
using Mendings = std::vector<Mending>;

/// Sends it. `links` is filled again when a device comes or goes: then look `device` up again.
void mend(const Device& device, const Mending& mending, nl_cache* links);

}  // namespace quenby
