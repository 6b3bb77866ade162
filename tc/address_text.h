#pragma once

#include <cstdint>
#include <string>

namespace quenby {

/// An IPv4 address (network order) as "10.0.0.1".
std::string address_text(std::uint32_t address);

}  // namespace quenby
