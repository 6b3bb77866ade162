#pragma once

#include <cstdint>
#include <string>

/// How the text of a configuration value becomes a number.
namespace quenby {

// Speeds are kbit/s in files, of 1000 bit each, and bytes per second everywhere else.
inline constexpr std::int64_t kBitsPerByte = 8;
inline constexpr std::int64_t kBitsPerKbit = 1000;
inline constexpr std::int64_t kBytesPerKbit = kBitsPerKbit / kBitsPerByte;
inline constexpr std::int64_t kBytesPerMbit = 1000 * kBytesPerKbit;

/// A speed that no file has set.
inline constexpr std::int64_t kNeverSet = -2;
/// A speed or burst rate whose text was empty, negative or not a number.
inline constexpr std::int64_t kEmptyValue = -1;

/// A speed in whole kbit/s: -1 for an empty value, 0 for one never set.
constexpr std::int64_t kbps_of(std::int64_t speed) {
  return speed == kEmptyValue ? kEmptyValue : speed / kBytesPerKbit;
}

/// The number at the start of `text` (leading and trailing white space aside, in the syntax of
/// `strtod`), or -1.0 when there is none or it is too large for a double. What follows the number
/// is ignored: "100kbit" is 100.
double get_num(std::string text);

/// The same; on success also stores the text that follows the number in `rest`, which is left as it
/// was when nothing follows.
double get_num(std::string text, std::string& rest);

/// A text in kbit/s (1 kbit = 1000 bit) as bits per second, truncated; -1 for a negative or
/// unusable number. A number beyond the 64-bit range gives a value below -1.
std::int64_t getRate(const std::string& text);

/// Stores `getRate(text)` in `out`. False, with `out` unchanged, when the value is out of range; an
/// empty or non-numeric text succeeds and stores -1.
bool _set_rate(const std::string& text, std::int64_t& out);

/// Stores the non-negative number of `text`, in bytes and without its fraction. False, with `out`
/// unchanged, for an empty, non-numeric or negative text.
bool parseBurstSize(const std::string& text, std::int64_t& out);

/// Stores the non-negative number of `text`. False, with `out` unchanged, for any other text.
bool parseNonNegative(const std::string& text, double& out);

}  // namespace quenby
