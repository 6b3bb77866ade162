#include "tc/htb_action.h"

namespace quenby {

std::string action_name(htb_action action) {
  switch (action) {
    case htb_action::create:
      return "create";
    case htb_action::remove:
      return "delete";
    case htb_action::update:
      return "update";
  }
  return "unknown(" + std::to_string(static_cast<int>(action)) + ")";
}

}  // namespace quenby
