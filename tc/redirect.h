#pragma once

#include <string>

namespace quenby {

/// The device that the WAN device's incoming traffic is shaped on.
inline constexpr const char* kIfbName = "ifb_ingr";

/// The shell command that sends the incoming traffic of `wan` to that device, after bringing back
/// each packet's mark from its connection when `restore_mark` is set.
std::string redirect_command(const std::string& wan, bool restore_mark);

}  // namespace quenby
