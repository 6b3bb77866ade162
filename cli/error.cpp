#include "cli/error.h"

#include <cstdlib>
#include <iostream>

namespace quenby {

void _error(const std::string& msg) {
  std::cerr << "Error: " << msg << '\n' << std::flush;
  std::exit(1);
}

void _error(const std::string& msg, const std::exception& e) { _error(msg + ":" + e.what()); }

}  // namespace quenby
