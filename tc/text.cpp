#include "tc/text.h"

#include <array>
#include <charconv>

namespace quenby {

std::string hex(std::uint32_t number) {
  std::array<char, 8> digits{};
  char* const end = digits.data() + digits.size();
  return {digits.data(), std::to_chars(digits.data(), end, number, 16).ptr};
}

}  // namespace quenby
