#pragma once

#include "ctl/status.h"

namespace quenby {

struct VerifyOptions {
  bool json = false;
};

/// The subcommand `verify`: one line for each difference between the kernel and the stored files.
/// `kFindings` where there is one.
Status verify(const VerifyOptions& options);

}  // namespace quenby
