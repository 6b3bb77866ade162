#include "ctl/json.h"

#include <nlohmann/json.hpp>

namespace quenby {

std::string printed(const nlohmann::json& value) {
  return value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
}

}  // namespace quenby
