#pragma once

#include <array>

namespace quenby {

/// Which way traffic goes: out through the WAN interface, or in from it.
enum class Direction { upload, download };

/// Both, in the order in which they are built and changed.
inline constexpr std::array<Direction, 2> kDirections = {Direction::upload, Direction::download};

/// The direction of an object that says whether it shapes what arrives from the WAN.
constexpr Direction direction_of(bool ingress) {
  return ingress ? Direction::download : Direction::upload;
}

}  // namespace quenby
