#include "ctl/repair.h"

#include <iostream>
#include <set>
#include <utility>

#include "config/system_config.h"
#include "ctl/kernel_drift.h"
#include "ctl/refusal.h"
#include "ctl/run_lock.h"
#include "ctl/wanted_note.h"
#include "shaper/repair.h"

namespace quenby {
namespace {

// A chain that the platform brings back is empty at first, so its rules come next.
constexpr int kRounds = 3;

void show(const char* prefix, const std::vector<Drift>& drift) {
  for (const Drift& one : drift) std::cout << prefix << to_text(one) << '\n';
}

}  // namespace

std::vector<Drift> mended(const std::vector<Drift>& before, const std::vector<Drift>& left) {
  std::multiset<std::string> found;
  for (const Drift& one : left) found.insert(to_text(one));
  std::vector<Drift> gone;
  for (const Drift& one : before) {
    const auto again = found.find(to_text(one));
    if (again == found.end()) {
      gone.push_back(one);
    } else {
      found.erase(again);
    }
  }
  return gone;
}

RepairResult repair_kernel(const Asked& asked, bool connections) {
  Session session = open_session();
  RepairResult result;
  if (asked.is_renumbered()) TariffSystemConfig().cfgSave(asked.edit.tariffs);
  result.mended = all_drift(asked, StateDrift());
  StateDrift found = find_drift(session, asked.wanted);
  result.left = found.all();
  for (int round = 0; round < kRounds && !result.left.empty(); ++round) {
    const std::vector<Drift> before = std::move(result.left);
    for (std::string& failure : repair(session, found))
      result.failures.push_back(std::move(failure));
    session = open_session();
    found = find_drift(session, asked.wanted);
    result.left = found.all();
    const std::vector<Drift> gone = mended(before, result.left);
    if (gone.empty()) break;
    result.mended.insert(result.mended.end(), gone.begin(), gone.end());
  }
  if (connections) repair_connections(session, asked.wanted);
  return result;
}

Status repair(const RepairOptions& options) {
  const RunLock lock;
  return or_refusal([&options] {
    const Asked asked = read_asked();
    WantedNote().write("repair");
    const RepairResult result = repair_kernel(asked, !options.no_connections);
    for (const std::string& failure : result.failures)
      std::cerr << "quenbyctl: " << failure << '\n';
    if (options.json) {
      std::cout << json_text(result.left, result.mended);
    } else {
      show("mended ", result.mended);
      show("left ", result.left);
    }
    return result.left.empty() ? kFine : kFindings;
  });
}

}  // namespace quenby
