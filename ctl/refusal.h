#pragma once

#include <functional>

#include "ctl/status.h"

namespace quenby {

/// Does the work. What `quenby` refuses is a finding: its message goes to standard error, with the
/// place in the file.
Status or_refusal(const Work& work);

}  // namespace quenby
