#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

#include "ctl/counter_reader.h"
#include "ctl/shaping.h"

/// What is exported, and the forms in which it is.
namespace quenby {

/// What the files ask for and what the kernel has counted, at one moment.
struct Measurement {
  /// Seconds since 1970.
  std::int64_t time = 0;
  /// The program's version.
  std::string version;
  Shaping shaping;
  /// In the order of the classes.
  Counters counters;
  /// How many differences there are between the files and the kernel; nothing where nobody has
  /// looked.
  std::optional<std::size_t> differences;
};

/// Metrics in the text format of Prometheus. Names and labels as in the manual page.
void write_prometheus(const Measurement& measurement, std::ostream& out);

/// All of it; members as in the manual page.
void write_json(const Measurement& measurement, std::ostream& out);

/// A line of names and one per class; fields as the members in JSON. A field with a comma, a quote
/// or a newline is quoted, a quote in it doubled.
void write_csv(const Measurement& measurement, std::ostream& out);

}  // namespace quenby
