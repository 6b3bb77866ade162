#pragma once

#include <string>

namespace quenby {

/// What an operation does with a kernel object.
enum class htb_action : int { create = 1, remove = 2, update = 3 };

/// "create", "delete" or "update"; "unknown(N)" for a value that is none of them.
std::string action_name(htb_action action);

}  // namespace quenby
