#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/edit.h"
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

/// A class as the kernel is to hold it. Rates in bytes per second, bursts in bytes.
struct PlannedClass {
  Direction way = Direction::upload;
  std::string device;
  /// The class number of a tariff; 1 to 3 for those of the line.
  unsigned number = 0;
  /// The tariff's name, or what the statistics call a class of the line.
  std::string name;
  HtbClass htb;
  /// The kind of the queue under it; empty for the kernel's own.
  std::string leaf;
  /// Where packets are classified by mark.
  std::optional<std::uint32_t> mark;
  /// In network order.
  std::vector<std::uint32_t> addresses;
  /// Whether the command makes it or changes it.
  bool touched = true;
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

/// What the router tells: the WAN port's rate in bytes per second, and the facts of a state.
struct PlanFacts {
  std::int64_t link_speed = 0;
  RouterFacts router;
};

/// Takes it for granted that the kernel holds what the stored files ask for.
Plan plan_of(const Edit& edit, const PlanFacts& facts);

}  // namespace quenby
