#include "ctl/export.h"

#include <boost/filesystem.hpp>
#include <ctime>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>

#include "cli/version.h"
#include "config/temporary_file.h"
#include "ctl/kernel_drift.h"
#include "ctl/measurement.h"
#include "ctl/refusal.h"
#include "ctl/run_lock.h"

namespace quenby {
namespace {

namespace fs = boost::filesystem;

using Format = void (*)(const Measurement&, std::ostream&);

const std::map<std::string, Format>& formats() {
  static const std::map<std::string, Format> kFormats = {
      {"prometheus", write_prometheus}, {"json", write_json}, {"csv", write_csv}};
  return kFormats;
}

// How long a run may go on before nothing is said of the differences.
constexpr unsigned kPatience = 20;

// Null for those who may not look, and while a run is under way.
std::unique_ptr<RunLock> wait_for_runs() {
  try {
    return std::make_unique<RunLock>(kPatience);
  } catch (const NotRun&) {
    return nullptr;
  }
}

// Nothing where the kernel does not answer.
std::optional<std::size_t> count_differences(const Asked& asked) {
  try {
    return drift_from(asked).size();
  } catch (const NotRun&) {
    return std::nullopt;
  }
}

Measurement measure() {
  const std::unique_ptr<RunLock> lock = wait_for_runs();
  const Asked asked = read_asked();
  Measurement measurement;
  measurement.time = std::time(nullptr);
  measurement.version = version();
  measurement.shaping = shaping_of(asked.edit, asked.settings, asked.state);
  measurement.counters = CounterReader(measurement.shaping.classes).read();
  if (lock) measurement.differences = count_differences(asked);
  return measurement;
}

// Nobody sees a part of it. A device or pipe is not replaced by a file.
void replace_file(const std::string& path, Format write, const Measurement& measurement) {
  const fs::file_status status = fs::symlink_status(path);
  if (fs::exists(status) && !fs::is_regular_file(status)) throw NotRun(path + ": not a file");
  TemporaryFile file = TemporaryFile::create(path + ".%%%%");
  std::ofstream out(file.path(), std::ios::binary);
  write(measurement, out);
  out.flush();
  if (!out) throw NotRun(file.path() + ": cannot be written");
  file.replace(path);
}

}  // namespace

Status export_counters(const ExportOptions& options) {
  return or_refusal([&options] {
    const Format write = formats().at(options.format);
    const Measurement measurement = measure();
    if (options.output.empty()) {
      write(measurement, std::cout);
    } else {
      replace_file(options.output, write, measurement);
    }
    return kFine;
  });
}

std::vector<std::string> export_formats() {
  std::vector<std::string> names;
  for (const auto& [name, write] : formats()) names.push_back(name);
  return names;
}

}  // namespace quenby
