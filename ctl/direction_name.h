#pragma once

#include "model/direction.h"

namespace quenby {

/// What people and programs call a direction.
constexpr const char* direction_name(Direction way) {
  return way == Direction::download ? "download" : "upload";
}

}  // namespace quenby
