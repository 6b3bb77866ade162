#include "model/rate.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <locale>

#include "model/number.h"

namespace quenby {
namespace {

constexpr double kNoNumber = -1.0;

void trim(std::string& text) {
  const std::locale locale;
  const auto is_text = [&locale](char c) { return !std::isspace(c, locale); };
  text.erase(std::find_if(text.rbegin(), text.rend(), is_text).base(), text.end());
  text.erase(text.begin(), std::find_if(text.begin(), text.end(), is_text));
}

// The number at the start of the trimmed `text`; `end` is set after it when there is one.
double leading_number(const std::string& text, const char*& end) {
  if (text.empty()) return kNoNumber;
  char* stop = nullptr;
  errno = 0;
  const double value = std::strtod(text.c_str(), &stop);
  const int error = errno;
  if (stop == text.c_str()) return kNoNumber;
  if (error == ERANGE && value > std::numeric_limits<double>::max()) return kNoNumber;
  if (error != 0 && value == 0.0) return kNoNumber;
  end = stop;
  return value;
}

}  // namespace

double get_num(std::string text) {
  trim(text);
  const char* end = nullptr;
  return leading_number(text, end);
}

double get_num(std::string text, std::string& rest) {
  trim(text);
  const char* end = nullptr;
  const double value = leading_number(text, end);
  if (end != nullptr && *end != '\0') rest = end;
  return value;
}

std::int64_t getRate(const std::string& text) {
  const double kbit = get_num(text);
  if (kbit < 0.0) return kEmptyValue;
  return to_int64(kbit * 1000.0);
}

bool _set_rate(const std::string& text, std::int64_t& out) {
  const std::int64_t rate = getRate(text);
  if (rate < kEmptyValue) return false;
  out = rate;
  return true;
}

bool parseBurstSize(const std::string& text, std::int64_t& out) {
  double value = 0.0;
  if (!parseNonNegative(text, value)) return false;
  out = to_int64(value);
  return true;
}

bool parseNonNegative(const std::string& text, double& out) {
  const double value = get_num(text);
  if (!(value >= 0.0)) return false;
  out = value;
  return true;
}

}  // namespace quenby
