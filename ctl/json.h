#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace quenby {

/// JSON for people and programs: indented, with a newline at the end. Names and values of files may
/// be any bytes, and JSON is UTF-8: what is none becomes the replacement character.
std::string printed(const nlohmann::json& value);

}  // namespace quenby
