#pragma once

#include <string>

#include "ctl/top_view.h"

namespace quenby {

/// The view as JSON; members as in the manual page. `seconds` are those that rates are of.
std::string json_text(const Shaping& shaping, const TopView& view, double seconds);

}  // namespace quenby
