#include "config/parse_error.h"

namespace quenby {

std::string ParseError::text() const {
  std::string place = file;
  if (at.line != 0) place += ":" + std::to_string(at.line) + ":" + std::to_string(at.column);
  return place + ": " + reason;
}

}  // namespace quenby
