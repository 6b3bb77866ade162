#include "ctl/change.h"

#include <iostream>

#include "ctl/held_signals.h"

namespace quenby {
namespace {

using Kind = Outcome::Kind;

// A record that is gone, though not yet on the disk, cannot be taken back any more.
void end_change(const KeptFiles& kept) {
  try {
    kept.forget();
  } catch (const std::exception& e) {
    if (kept.record()) throw;
    std::cerr << "quenbyctl: a crash may bring the former files back: " << e.what() << '\n';
  }
}

void wait_on(const KeptFiles& kept, ChangeRecord record, unsigned seconds) {
  record.deadline = now_ms() + std::int64_t{seconds} * 1000;
  kept.wait(record);
}

void expect_no_signal() {
  const std::string signal = held_signal();
  if (!signal.empty()) throw NotRun("interrupted by " + signal);
}

// Throws where the change is to be taken back.
void carry_out(const ChangePlaces& places, const std::vector<std::string>& arguments,
               Outcome& outcome) {
  places.kernel.run(arguments);
  expect_no_signal();
  outcome.differences = places.kernel.differences();
  if (!outcome.differences.empty()) throw NotRun("the kernel differs from the files");
  expect_no_signal();
}

void take_it_back(const ChangePlaces& places, Outcome& outcome) {
  outcome.kind = Kind::taken_back;
  try {
    take_back(places);
  } catch (const std::exception& e) {
    outcome.kind = Kind::stuck;
    outcome.reason += "\nquenbyctl: ";
    outcome.reason += e.what();
  }
}

}  // namespace

Outcome make_change(const ChangePlaces& places, const ChangeRecord& record,
                    const std::vector<std::string>& arguments, std::optional<unsigned> seconds) {
  Outcome outcome;
  outcome.command = record.command;
  outcome.seconds = seconds;
  try {
    carry_out(places, arguments, outcome);
    outcome.kind = seconds ? Kind::waiting : Kind::applied;
    if (seconds) {
      wait_on(places.kept, record, *seconds);
    } else {
      end_change(places.kept);
    }
  } catch (const std::exception& e) {
    outcome.seconds.reset();
    outcome.reason = e.what();
    take_it_back(places, outcome);
  }
  return outcome;
}

}  // namespace quenby
