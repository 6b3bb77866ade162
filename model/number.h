#pragma once

#include <cstdint>

/// Conversions and sums that are defined for every input. They give what a 64-bit x86 processor
/// gives, so that an absurd value in a file has the same effect on every build.
namespace quenby {

/// `value` truncated toward zero; the smallest 64-bit value when it is out of range or not a
/// number.
std::int64_t to_int64(double value);

/// `value` truncated toward zero; the smallest 32-bit value when it is out of range or not a
/// number.
std::int32_t to_int32(double value);

/// `value` truncated toward zero; the largest 32-bit value when it is above the range, the smallest
/// when it is below, and the smallest when it is not a number.
std::int32_t to_int32_saturated(double value);

/// Sum and product modulo 2^64.
std::int64_t wrapping_add(std::int64_t a, std::int64_t b);
std::int64_t wrapping_multiply(std::int64_t a, std::int64_t b);

/// The low 32 bits of a rate, ceiling or burst: all that fits into the kernel's HTB messages.
std::uint32_t low32(std::int64_t value);

/// The low 32 bits read as a signed number.
std::int32_t low32_signed(std::int64_t value);

}  // namespace quenby
