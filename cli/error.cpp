#include "cli/error.h"

#include <cstdlib>
#include <iostream>

namespace quenby {
namespace {

FailureHandler failure_handler = nullptr;

}  // namespace

void _error(const std::string& msg) {
  if (failure_handler != nullptr) failure_handler(msg);
  std::cerr << "Error: " << msg << '\n' << std::flush;
  std::exit(1);
}

void _error(const std::string& msg, const std::exception& e) { _error(msg + ":" + e.what()); }

void fail_silently(const std::string& reason) {
  if (failure_handler != nullptr) failure_handler(reason);
  std::exit(1);
}

void set_failure_handler(FailureHandler handler) { failure_handler = handler; }

}  // namespace quenby
