#pragma once

#include <string>
#include <variant>

#include "model/family.h"
#include "tc/mending.h"

namespace quenby {

enum class DriftKind { missing, different, unwanted };

/// "missing", "different" or "unwanted".
const char* drift_kind_name(DriftKind kind);

/// A repair mends it without a request to a device: an entry of a set, a class number, a note.
struct MendedOtherwise {};
/// A set of another type has the name of ours.
struct OtherSetType {
  std::string name;
};
/// A firewall table of which nothing is known.
struct UnlistedTable {
  Family family = Family::ipv4;
  std::string name;
};
/// A qdisc of another kind stands where the ingress qdisc should. Neither a repair nor a teardown
/// takes it away, as somebody else's programs may hang on it.
struct OtherIngress {
  std::string kind;
};

/// What mends a difference: requests, none where this program does not know how, or something else.
/// The last three are what keeps a repair from mending it.
using Cure = std::variant<Mendings, MendedOtherwise, OtherSetType, UnlistedTable, OtherIngress>;

/// In what the kernel differs from what it should hold, and what mends it.
struct Drift {
  DriftKind kind = DriftKind::missing;
  /// The device, or "set", "firewall" or "steering".
  std::string place;
  std::string object;
  /// What is different; empty for the other kinds.
  std::string detail;
  /// Has no default: who finds a difference has to say it.
  Cure cure;
  /// To be mended last: what nothing may lead to any more when it goes.
  bool last = false;
};

/// "missing: eth1 class 8000:4", "different: eth1 class 8000:4: rate ...".
std::string to_text(const Drift& drift);

}  // namespace quenby
