#pragma once

#include <string>
#include <vector>

#include "cli/edit.h"
#include "shaper/state_drift.h"

/// The kernel beside what the stored files ask for.
namespace quenby {

/// What the stored files ask the kernel to hold.
struct Asked {
  Edit edit;
  /// What its settings come to on this router, shaped or not.
  ResolvedSettings settings;
  WantedState wanted;
  RouterFacts router;

  /// Whether the stored class numbers do not fit, so that they are handed out again.
  bool is_renumbered() const { return edit.save != TariffSave::none; }
};

/// Reads the stored files and asks the router about its WAN interface. Throws `NotRun` where the
/// caller may not read them, `Refused` where the program would refuse them.
Asked read_asked();

/// Every difference, with that of the class numbers.
std::vector<Drift> all_drift(const Asked& asked, const StateDrift& drift);

/// The same for this router, which is asked for everything. Throws as `read_asked`, and `NotRun`
/// where the kernel does not answer.
std::vector<Drift> drift_from_files();

/// JSON: an object with the list "differences", each with "finding", "place", "object" and
/// "detail"; the second form has what was mended as "mended" too.
std::string json_text(const std::vector<Drift>& drift);
std::string json_text(const std::vector<Drift>& drift, const std::vector<Drift>& mended);

}  // namespace quenby
