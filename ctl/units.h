#pragma once

#include <cstdint>
#include <string>

/// Numbers for people.
namespace quenby {

/// In at most five characters: three digits that count, with k, M, G or T for thousands: "0",
/// "999", "1.23k", "12.3k", "123M".
std::string short_number(double number);

/// As it was given: "1", "0.5".
std::string plain_number(double number);

/// Bytes per second as "1500 kbit/s", with all digits.
std::string exact_kbit(std::uint32_t bytes_per_second);

/// Bytes per second in bits per second.
std::string short_bits(double bytes_per_second);

}  // namespace quenby
