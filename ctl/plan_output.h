#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "ctl/plan_value.h"

namespace quenby {

/// One line for the way, one for each difference, one for each class that is touched and one for
/// each command.
std::string to_text(const Plan& plan);

/// The same with all classes; members as in the manual page.
nlohmann::json to_json(const Plan& plan);

}  // namespace quenby
