#pragma once

#include <cstdint>
#include <optional>

#include "ctl/check_file.h"

/// What the program accepts but is surely not meant.
namespace quenby {

/// A file's values, each for itself: text after a number, fractions that are cut, negative speeds,
/// prefix lengths, bits that a prefix has not got, unknown queueing disciplines, an aggregation
/// of 0.
void warn_of_values(const CheckedFile<GlobalSet>& file, Findings& findings);
void warn_of_values(const CheckedFile<TariffSet>& file, Findings& findings);

/// What the sections lack or have twice. Only for files without errors, as what is refused is not
/// missing.
void warn_of_sections(const CheckedFile<GlobalSet>& file, Findings& findings);
void warn_of_sections(const CheckedFile<TariffSet>& file, FileKind kind, Findings& findings);

/// What belongs together: a line, its tariffs and the port that carries both. Either file may be
/// null when it is not looked at or has errors; the other's values then stand for themselves.
struct Whole {
  const CheckedFile<GlobalSet>* line = nullptr;
  const CheckedFile<TariffSet>* tariffs = nullptr;
  /// The port's rate in bytes per second; nothing when it is not known.
  std::optional<std::int64_t> port_speed;
};

/// Speeds above the port's, guarantees that oversubscribe the limit, bursts that the kernel cuts.
void warn_of_rates(const Whole& whole, Findings& findings);

/// Prefixes on a line that does not shape IPv6, and a line that cannot.
void warn_of_ipv6(const Whole& whole, Findings& findings);

}  // namespace quenby
