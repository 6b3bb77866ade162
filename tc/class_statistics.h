#pragma once

#include <ostream>
#include <string>

#include "model/tariff_config.h"
#include "tc/nl_types.h"

/// The lines of the statistics output: who the class belongs to and its counters.
namespace quenby {

/// What a class of the line itself, which is no tariff's, is called; empty for other numbers. On
/// the IMQ device, without marks, the default class is the default tariff's.
std::string line_class_name(unsigned number, bool by_mark);

/// The name of class number `number`: "root" or its tariff's name, the number itself when no tariff
/// has it. `cfg` has its numbers in ascending order.
std::string class_name(unsigned number, const TariffConfig& cfg);

/// The same on a device that classifies by mark, where classes 2 and 3 have names too.
std::string mark_class_name(unsigned number, const TariffConfig& cfg);

/// The whole name of a class of the IMQ device with its direction; empty for classes that are not
/// listed. Handles of the class and of its parent.
std::string imq_class_name(std::uint32_t handle, std::uint32_t parent, const TariffConfig& cfg);

/// Writes `name` and the counters of `object`.
void print_class(std::ostream& out, const std::string& name, rtnl_class* object);

}  // namespace quenby
