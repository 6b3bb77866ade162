#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "shaper/desired_state.h"

/// Which class is whose.
namespace quenby {

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
  /// None where IPv6 is not shaped.
  std::vector<Ip6Prefix> prefixes{};
  /// Whether a command makes it or changes it.
  bool touched = true;
};

/// The tariffs of a list, which they stay in, by their class numbers.
using TariffsByNumber = std::map<unsigned, const TariffSettings*>;
TariffsByNumber by_number(const TariffSet& set);

/// Hands over all classes of a state that was made of these settings, upload first and in the order
/// in which they are made.
void each_planned_class(const ResolvedSettings& settings, const DesiredState& state,
                        const std::function<void(PlannedClass)>& take);

/// All of them.
std::vector<PlannedClass> planned_classes(const ResolvedSettings& settings,
                                          const DesiredState& state);
/// How many there are.
std::size_t count_planned_classes(const DesiredState& state);

}  // namespace quenby
