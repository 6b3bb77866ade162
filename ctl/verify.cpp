#include "ctl/verify.h"

#include <iostream>

#include "ctl/kernel_drift.h"
#include "ctl/refusal.h"
#include "ctl/run_lock.h"

namespace quenby {

Status verify(const VerifyOptions& options) {
  const RunLock lock;
  return or_refusal([&options] {
    const std::vector<Drift> drift = drift_from_files();
    if (options.json) {
      std::cout << json_text(drift);
    } else {
      for (const Drift& one : drift) std::cout << to_text(one) << '\n';
    }
    return drift.empty() ? kFine : kFindings;
  });
}

}  // namespace quenby
