#include "ctl/take_back.h"

#include <chrono>
#include <thread>

#include "ctl/status.h"

namespace quenby {
namespace {

constexpr int kAttempts = 3;
constexpr std::chrono::milliseconds kPause(100);

// Calls until nothing is thrown, and throws what the last call has.
template <typename Call>
auto with_patience(const Call& call) -> decltype(call()) {
  for (int attempt = 1; attempt < kAttempts; ++attempt) {
    try {
      return call();
    } catch (const std::exception&) {
      std::this_thread::sleep_for(kPause);
    }
  }
  return call();
}

// What has to be done to the kernel. Nothing wants to be shaped before the service has started
// after a boot, nor when somebody has stopped it since.
struct KernelTask {
  bool none = false;
  bool stop = false;
  bool stop_first = false;
  bool remove_note = false;
};

KernelTask task_for(const ChangePlaces& places, const ChangeRecord& record) {
  KernelTask task;
  task.none = !places.wanted.exists();
  const bool same_boot = is_of_this_boot(record);
  task.stop = same_boot && !record.was_wanted;
  task.remove_note = same_boot && !record.had_note;
  task.stop_first = !task.none && (task.stop || record.wan != record.former_wan);
  return task;
}

// The program takes down what the stored files name, and they may not be the new ones yet.
void stop_new_line(const ChangePlaces& places, const ChangeRecord& record) {
  try {
    if (record.wan != record.former_wan) places.kept.name_new_wan(record);
    places.kernel.run({"--stop"});
  } catch (const std::exception&) {
    // What is left of it shows when the kernel is repaired.
  }
}

KernelTask put_files_back(const ChangePlaces& places) {
  const std::optional<ChangeRecord> record = places.kept.record();
  if (!record) throw NotRun("no change can be taken back");
  const KernelTask task = task_for(places, *record);
  places.kept.begin_taking_back();
  if (task.stop_first) stop_new_line(places, *record);
  places.kept.put_back(*record);
  return task;
}

void repair_and_look(const KernelAccess& kernel) {
  kernel.repair();
  const std::vector<std::string> differences = kernel.differences();
  if (!differences.empty()) throw NotRun("the kernel still differs: " + differences.front());
}

void mend(const ChangePlaces& places, const KernelTask& task) {
  if (task.none) return;
  if (task.stop) {
    places.kernel.run({"--stop"});
  } else {
    repair_and_look(places.kernel);
  }
  if (task.remove_note) places.wanted.remove();
}

void mend_kernel(const ChangePlaces& places, const KernelTask& task) {
  try {
    with_patience([&] { mend(places, task); });
  } catch (const std::exception& e) {
    places.kept.forget();
    throw NotRun(std::string("the files are the former ones, the kernel is not: ") + e.what() +
                 "; see to the cause, then: quenby --stop && quenby --load");
  }
}

KernelTask put_files_back_patiently(const ChangePlaces& places) {
  try {
    return with_patience([&] { return put_files_back(places); });
  } catch (const std::exception& e) {
    throw NotRun(std::string("cannot put the files back: ") + e.what() +
                 "; \"quenbyctl apply --take-back\" tries again");
  }
}

}  // namespace

void take_back(const ChangePlaces& places) {
  mend_kernel(places, put_files_back_patiently(places));
  with_patience([&] { places.kept.forget(); });
}

}  // namespace quenby
