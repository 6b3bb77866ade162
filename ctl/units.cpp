#include "ctl/units.h"

#include <cstdio>

namespace quenby {

std::string short_number(double number) {
  constexpr const char* kThousands[] = {"", "k", "M", "G", "T"};
  // What is shown as 1000 is 1 of the next.
  constexpr double kRoundsUp = 999.5;
  std::size_t unit = 0;
  while (number >= kRoundsUp && unit + 1 < std::size(kThousands)) {
    number /= 1000;
    ++unit;
  }
  const int decimals = unit == 0 || number >= 99.95 ? 0 : number >= 9.995 ? 1 : 2;
  char text[32];
  std::snprintf(text, sizeof(text), "%.*f%s", decimals, number, kThousands[unit]);
  return text;
}

std::string plain_number(double number) {
  char text[32];
  std::snprintf(text, sizeof(text), "%g", number);
  return text;
}

std::string exact_kbit(std::uint32_t bytes_per_second) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.10g kbit/s",
                static_cast<double>(bytes_per_second) * 8.0 / 1000.0);
  return text;
}

std::string short_bits(double bytes_per_second) { return short_number(bytes_per_second * 8); }

}  // namespace quenby
