#include "ctl/confirm.h"

#include "ctl/kept_files.h"
#include "ctl/outcome.h"
#include "ctl/run_lock.h"
#include "ctl/take_back_timer.h"

namespace quenby {
namespace {

using Kind = Outcome::Kind;

// Whoever has the lock first decides: the confirmation or the taking back.
Outcome confirm_change() {
  const RunLock lock;
  const KeptFiles kept;
  const std::optional<ChangeRecord> record = kept.record();
  if (!record) return {Kind::none, "", "", {}, {}};
  if (record->state != ChangeState::waiting) throw NotRun(describe(*record));
  kept.forget();
  stop_timer(record->id);
  return {Kind::confirmed, record->command, "", {}, {}};
}

}  // namespace

Status confirm(const ConfirmOptions& options) {
  const Outcome outcome = confirm_change();
  show(outcome, options.json);
  return outcome.kind == Kind::confirmed ? kFine : kFindings;
}

}  // namespace quenby
