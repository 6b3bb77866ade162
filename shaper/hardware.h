#pragma once

#include <cstdint>
#include <string>

/// What the router's hardware tool tells. A missing tool is no failure: the answers are then those
/// of a gigabit port on an unknown board.
namespace quenby {

/// Whether there is such a tool.
bool has_hardware_tool();

/// The board's name as the tool prints it, untrimmed.
std::string board_name();

/// The line rate of a port in bytes per second.
std::int64_t link_speed(const std::string& interface);

/// The rate that the tool's speed field of a 10 Gbit/s capable port stands for, in bytes per
/// second. The number is in Mbit/s; a field without one, or with one that comes to less than 1 byte
/// per second or to more than 63 bits, means 10 Gbit/s.
std::int64_t sfp_plus_speed(const std::string& field);

}  // namespace quenby
