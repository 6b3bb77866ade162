#pragma once

#include <string>

#include "ctl/plan_value.h"

namespace quenby {

/// One line for the way, one for each difference, one for each class that is touched and one for
/// each command.
std::string to_text(const Plan& plan);

/// JSON: the same with all classes; members as in the manual page.
std::string json_text(const Plan& plan);

}  // namespace quenby
