#pragma once

#include <string>

namespace quenby {

/// Why a configuration did not take something that a file says, for people to read.
struct Refusal {
  /// What the reason is about: the section above that ends here, the name of the one that begins,
  /// a line's key, or its value.
  enum class Of { kSection, kName, kKey, kValue };

  Of of = Of::kSection;
  std::string reason;
};

/// `text` in quotes, for a message: control characters as "\xNN", and cut off when it is long.
std::string quoted(const std::string& text);

}  // namespace quenby
