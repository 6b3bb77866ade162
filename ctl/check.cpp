#include "ctl/check.h"

#include <iostream>
#include <memory>

#include "config/paths.h"
#include "config/system_config.h"
#include "ctl/terminal.h"
#include "ctl/warnings.h"
#include "shaper/hardware.h"

namespace quenby {
namespace {

// A stored file is read by the rules of stored files, whoever names it.
FileKind kind_of(const CheckOptions& options, const std::string& path) {
  if (options.kind == "stored") return FileKind::stored;
  const bool is_stored = path.empty() || path == kGlobalFile || path == kTariffFile;
  return options.kind.empty() && is_stored ? FileKind::stored : FileKind::named;
}

using GlobalFile = std::unique_ptr<CheckedFile<GlobalSet>>;
using TariffFile = std::unique_ptr<CheckedFile<TariffSet>>;

// The stored file where none was named, if there is one.
GlobalFile read_global(const CheckOptions& options) {
  if (options.global.empty() && GlobalSystemConfig::missing()) return nullptr;
  const std::string path = options.global.empty() ? kGlobalFile : options.global;
  return std::make_unique<CheckedFile<GlobalSet>>(
      check_global_file(path, kind_of(options, options.global)));
}

TariffFile read_tariffs(const CheckOptions& options) {
  if (options.tariffs.empty() && TariffSystemConfig::missing()) return nullptr;
  const std::string path = options.tariffs.empty() ? kTariffFile : options.tariffs;
  return std::make_unique<CheckedFile<TariffSet>>(
      check_tariff_file(path, kind_of(options, options.tariffs)));
}

// A file that nobody has named is there for the other's sake: where it cannot be read, the other is
// looked at alone.
template <typename Read>
auto read_for_other(const Read& read, const CheckOptions& options) -> decltype(read(options)) {
  try {
    auto file = read(options);
    if (file) file->asked_for = false;
    return file;
  } catch (const NotRun&) {
    return nullptr;
  }
}

template <typename File>
const typename File::element_type* if_good(const File& file) {
  return file && file->errors.empty() ? file.get() : nullptr;
}

std::optional<std::int64_t> port_speed(const GlobalFile& line) {
  const auto* const good = if_good(line);
  if (good == nullptr || good->config.global.wan.empty() || !has_hardware_tool()) return {};
  return link_speed(good->config.global.wan);
}

void append(Findings& all, const Findings& more) {
  all.insert(all.end(), more.begin(), more.end());
}

Findings findings_of(const GlobalFile& line, const TariffFile& tariffs, FileKind kind) {
  Findings findings;
  if (line && line->asked_for) {
    append(findings, line->errors);
    warn_of_values(*line, findings);
    warn_of_sections(*line, findings);
  }
  if (tariffs && tariffs->asked_for) {
    append(findings, tariffs->errors);
    warn_of_values(*tariffs, findings);
    warn_of_sections(*tariffs, kind, findings);
  }
  const Whole whole{if_good(line), if_good(tariffs), port_speed(line)};
  warn_of_rates(whole, findings);
  warn_of_ipv6(whole, findings);
  sort_by_place(findings);
  return findings;
}

template <typename File>
const IniText* source_of(const File& file, const Finding& finding) {
  const bool is_it = file && file->source && file->source->path() == finding.file;
  return is_it ? &*file->source : nullptr;
}

}  // namespace

Status check(const CheckOptions& options) {
  const bool all = !options.names_a_file();
  const GlobalFile line =
      all || !options.global.empty() ? read_global(options) : read_for_other(read_global, options);
  const TariffFile tariffs = all || !options.tariffs.empty()
                                 ? read_tariffs(options)
                                 : read_for_other(read_tariffs, options);
  const Findings findings = findings_of(line, tariffs, kind_of(options, options.tariffs));
  if (options.json) {
    std::cout << json_text(findings);
  } else {
    const bool colours = stdout_has_colours();
    for (const Finding& finding : findings) {
      const IniText* const source = source_of(line, finding);
      std::cout << to_text(finding, source != nullptr ? source : source_of(tariffs, finding),
                           colours);
    }
  }
  return findings.empty() ? kFine : kFindings;
}

}  // namespace quenby
