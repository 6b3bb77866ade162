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

// Differences and counters out of one look at the kernel. False, with nothing taken, where it does
// not answer.
bool compare(const Asked& asked, const CounterReader& reader, Measurement& measurement) {
  try {
    KernelReading read;
    measurement.differences =
        all_drift(asked, find_drift(open_session(), asked.wanted, &read)).size();
    measurement.counters = reader.of(read.counters);
    return true;
  } catch (const NotRun&) {
    return false;
  }
}

Measurement measure() {
  const std::unique_ptr<RunLock> lock = wait_for_runs();
  const Asked asked = read_asked();
  Measurement measurement;
  measurement.time = std::time(nullptr);
  measurement.version = version();
  measurement.shaping = shaping_of(asked.edit, asked.settings, asked.wanted.state, asked.router);
  const CounterReader reader(measurement.shaping.classes);
  if (!lock || !compare(asked, reader, measurement)) measurement.counters = reader.read();
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
