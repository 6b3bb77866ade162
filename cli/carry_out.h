#pragma once

#include "cli/edit.h"

namespace quenby {

/// Does what an edit says: the kernel first and the files last, so that a failure leaves the files
/// as they were. A failure ends the process.
void carry_out(const Edit& edit);

}  // namespace quenby
