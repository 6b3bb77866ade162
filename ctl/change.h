#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ctl/outcome.h"
#include "ctl/take_back.h"

namespace quenby {

/// Runs the program with `arguments` and looks whether the kernel holds what the stored files ask
/// for afterwards. Then the change is over, or it waits `seconds` for its confirmation. If anything
/// fails files and kernel become what they were. The files have been kept, with `record`, and the
/// caller holds the lock of all runs.
Outcome make_change(const ChangePlaces& places, const ChangeRecord& record,
                    const std::vector<std::string>& arguments, std::optional<unsigned> seconds);

}  // namespace quenby
