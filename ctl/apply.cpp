#include "ctl/apply.h"

#include <sys/stat.h>

#include <optional>

#include "cli/refused.h"
#include "ctl/change.h"
#include "ctl/command.h"
#include "ctl/guard.h"
#include "ctl/held_signals.h"
#include "ctl/outcome.h"
#include "ctl/run_lock.h"
#include "ctl/take_back_timer.h"

namespace quenby {
namespace {

using Kind = Outcome::Kind;

// The change and the look before it read the same file.
void expect_regular(const Command& command) {
  struct stat status {};
  if (reads_file(command) && stat(command.argument.c_str(), &status) == 0 &&
      !S_ISREG(status.st_mode)) {
    throw NotRun(command.argument + " is not a regular file: it is read twice");
  }
}

Outcome outcome_of(const Command& command, const Refused& refused) {
  std::string reason = refused.what();
  if (refused.error()) reason += "\n" + refused.error()->text();
  return {Kind::refused, to_text(command), reason, {}, {}};
}

ChangeRecord record_of(const Command& command) {
  expect_regular(command);
  const Edit edit = edit_of(command, "apply");
  ChangeRecord record = new_record(to_text(command));
  record.former_wan = edit.line_before.global.wan;
  record.wan = edit.line.global.wan;
  return record;
}

void expect_no_other(const KeptFiles& kept) {
  if (const auto other = kept.record()) throw NotRun(describe(*other));
}

// Shaping may stand without a note, where the program is run without the launcher.
bool stands(const KernelAccess& kernel) {
  try {
    return kernel.differences().empty();
  } catch (const std::exception&) {
    return false;
  }
}

// What comes before the change itself. Where it fails nothing was changed.
void prepare(const ChangePlaces& places, const ApplyOptions& options, ChangeRecord& record) {
  record.had_note = places.wanted.exists();
  record.was_wanted = record.had_note || stands(places.kernel);
  places.kept.keep(record);
  try {
    if (options.confirm && has_timers())
      start_timer(record.id, std::chrono::seconds(*options.confirm));
    places.wanted.write("--" + options.command.name);
  } catch (...) {
    if (!record.had_note) places.wanted.remove();
    places.kept.forget();
    throw;
  }
}

Outcome apply_command(const ApplyOptions& options) {
  const RunLock lock;
  const ChangePlaces places{KeptFiles(), WantedNote(), kernel_access(lock.descriptor())};
  expect_no_other(places.kept);
  ChangeRecord record = record_of(options.command);
  hold_signals();
  const Guard guard(record.id, options.confirm && !has_timers());
  prepare(places, options, record);
  Outcome outcome =
      make_change(places, record, program_arguments(options.command), options.confirm);
  if (options.confirm && outcome.kind != Kind::waiting) stop_timer(record.id);
  return outcome;
}

Outcome apply_or_refuse(const ApplyOptions& options) {
  try {
    return apply_command(options);
  } catch (const Refused& refused) {
    return outcome_of(options.command, refused);
  }
}

Outcome take_back_now() {
  const RunLock lock;
  const ChangePlaces places{KeptFiles(), WantedNote(), kernel_access(lock.descriptor())};
  const std::optional<ChangeRecord> record = places.kept.record();
  if (!record) return {Kind::none, "", "", {}, {}};
  hold_signals();
  take_back(places);
  stop_timer(record->id);
  return {Kind::taken_back, record->command, "", {}, {}};
}

Outcome take_back_when_due() {
  return {watch("", true) ? Kind::taken_back : Kind::none, "", "", {}, {}};
}

Status status_of(const Outcome& outcome, const ApplyOptions& options) {
  switch (outcome.kind) {
    case Kind::taken_back:
      return options.take_back ? kFine : kFindings;
    case Kind::none:
      return options.when_due ? kFine : kFindings;
    case Kind::refused:
      return kFindings;
    case Kind::stuck:
      return kNotRun;
    default:
      return kFine;
  }
}

}  // namespace

Status apply(const ApplyOptions& options) {
  const Outcome outcome = options.when_due    ? take_back_when_due()
                          : options.take_back ? take_back_now()
                                              : apply_or_refuse(options);
  show(outcome, options.json);
  return status_of(outcome, options);
}

}  // namespace quenby
