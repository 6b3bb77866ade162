#pragma once

#include <string>

#include "model/direction.h"

namespace quenby {

/// What people and programs call a direction.
constexpr const char* direction_name(Direction way) {
  return way == Direction::download ? "download" : "upload";
}

/// The key of a direction's value in a file: "download_speed".
inline std::string direction_key(Direction way, const char* value) {
  return std::string(direction_name(way)) + '_' + value;
}

}  // namespace quenby
