#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cli/edit.h"
#include "ctl/planned_classes.h"
#include "shaper/desired_state.h"

/// What a command would do, as a value.
namespace quenby {

/// What happens to the kernel's objects.
enum class PlannedWay { nothing, in_place, anew, removal };

/// A key of a section before and after; nothing where the section has not got it.
struct ValueChange {
  std::string key;
  std::optional<std::string> before;
  std::optional<std::string> after;
};

struct SectionChange {
  std::string name;
  std::vector<ValueChange> values;
};

struct Plan {
  PlannedWay way = PlannedWay::nothing;
  /// Why this way.
  std::string reason;
  /// The sections of the global file that change.
  std::vector<SectionChange> line;
  std::vector<std::string> added;
  std::vector<std::string> removed;
  std::vector<SectionChange> changed;
  /// All that the kernel holds afterwards, upload first.
  std::vector<PlannedClass> classes;
  /// The shell commands for the firewall and packet steering in their order.
  std::vector<std::string> commands;
};

/// What the router tells: the WAN port's rate in bytes per second, the facts of a state, whether
/// IPv6 objects may stand, and whether what a change in place relies on does when these settings
/// are what the kernel was given last; without this function it does.
struct PlanFacts {
  std::int64_t link_speed = 0;
  RouterFacts router;
  bool ipv6_noted = false;
  std::function<bool(const ResolvedSettings&)> stands = nullptr;
};

/// What the edit would do on a router that tells these facts.
Plan plan_of(const Edit& edit, const PlanFacts& facts);

}  // namespace quenby
