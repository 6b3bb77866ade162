#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ctl/plan_value.h"

/// What the stored files ask this router for, in the form in which it is watched.
namespace quenby {

/// A class that the kernel is to hold, and what the files themselves say of it, in bytes per
/// second. Nothing where they say nothing, or no number.
struct ShapedClass {
  PlannedClass planned;
  std::optional<std::int64_t> configured_guarantee;
  std::optional<std::int64_t> configured_ceiling;

  bool is_tariff() const { return planned.number >= static_cast<unsigned>(kFirstTariffNumber); }
  bool is_root() const { return planned.number == kRootClass; }
};

/// A direction of the line: what there is to share and what is guaranteed of it before the
/// guarantees were made to fit, in bytes per second.
struct ShapedDirection {
  Direction way = Direction::upload;
  std::string device;
  std::int64_t limit = 0;
  std::int64_t guarantees = 0;
};

struct Shaping {
  /// Whether the files ask for shaping at all.
  bool enabled = false;
  /// Whether IPv6 is shaped too.
  bool ipv6 = false;
  /// Whether there is the WAN interface; nothing where none is named.
  std::optional<bool> has_wan;
  /// The stored tariffs, those without a class included.
  std::size_t tariffs = 0;
  std::array<ShapedDirection, 2> directions;
  /// Upload first; none while the WAN interface is missing.
  std::vector<ShapedClass> classes;
};

Shaping shaping_of(const Edit& edit, const PlanFacts& facts);
/// The same, of what the edit's settings come to on this router.
Shaping shaping_of(const Edit& edit, const ResolvedSettings& settings, const DesiredState& state,
                   const RouterFacts& router);

/// Reads the stored files and asks the router. Throws `NotRun` where the caller may not read them,
/// `Refused` where the program would refuse them.
Shaping read_shaping();

}  // namespace quenby
