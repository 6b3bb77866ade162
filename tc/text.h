#pragma once

#include <cstdint>
#include <string>

namespace quenby {

/// `number` in lower-case hexadecimal, without leading zeros or a prefix.
std::string hex(std::uint32_t number);

}  // namespace quenby
