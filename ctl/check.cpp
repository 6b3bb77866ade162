#include "ctl/check.h"

#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "config/paths.h"
#include "config/system_config.h"
#include "ctl/terminal.h"
#include "ctl/warnings.h"
#include "shaper/hardware.h"

namespace quenby {
namespace {

struct CheckOptions {
  std::string global;
  std::string tariffs;
  std::string kind;
  bool json = false;

  bool names_a_file() const { return !global.empty() || !tariffs.empty(); }
  FileKind kind_of(const std::string& path) const;
};

// A stored file is read by the rules of stored files, whoever names it.
FileKind CheckOptions::kind_of(const std::string& path) const {
  if (kind == "stored") return FileKind::stored;
  const bool is_stored = path.empty() || path == kGlobalFile || path == kTariffFile;
  return kind.empty() && is_stored ? FileKind::stored : FileKind::named;
}

using GlobalFile = std::unique_ptr<CheckedFile<GlobalSet>>;
using TariffFile = std::unique_ptr<CheckedFile<TariffSet>>;

// The stored file where none was named, if there is one.
GlobalFile read_global(const CheckOptions& options) {
  if (options.global.empty() && GlobalSystemConfig::missing()) return nullptr;
  const std::string path = options.global.empty() ? kGlobalFile : options.global;
  return std::make_unique<CheckedFile<GlobalSet>>(
      check_global_file(path, options.kind_of(options.global)));
}

TariffFile read_tariffs(const CheckOptions& options) {
  if (options.tariffs.empty() && TariffSystemConfig::missing()) return nullptr;
  const std::string path = options.tariffs.empty() ? kTariffFile : options.tariffs;
  return std::make_unique<CheckedFile<TariffSet>>(
      check_tariff_file(path, options.kind_of(options.tariffs)));
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
  warn_of_rates({if_good(line), if_good(tariffs), port_speed(line)}, findings);
  sort_by_place(findings);
  return findings;
}

template <typename File>
const IniText* source_of(const File& file, const Finding& finding) {
  const bool is_it = file && file->source && file->source->path() == finding.file;
  return is_it ? &*file->source : nullptr;
}

void print_json(const Findings& findings) {
  nlohmann::json list = nlohmann::json::array();
  for (const Finding& finding : findings) list.push_back(to_json(finding));
  // Names and values may be any bytes, and JSON is UTF-8.
  std::cout << nlohmann::json{{"findings", list}}.dump(2, ' ', false,
                                                       nlohmann::json::error_handler_t::replace)
            << '\n';
}

Status check(const CheckOptions& options) {
  const bool all = !options.names_a_file();
  const GlobalFile line =
      all || !options.global.empty() ? read_global(options) : read_for_other(read_global, options);
  const TariffFile tariffs = all || !options.tariffs.empty()
                                 ? read_tariffs(options)
                                 : read_for_other(read_tariffs, options);
  const Findings findings = findings_of(line, tariffs, options.kind_of(options.tariffs));
  if (options.json) {
    print_json(findings);
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

}  // namespace

void add_check(CLI::App& app, Work& work) {
  CLI::App* const command = app.add_subcommand(
      "check", "Say where the program would refuse a file, and what is surely not meant");
  const auto options = std::make_shared<CheckOptions>();
  command->add_option("--global", options->global, "A global file, in the stored one's place")
      ->type_name("FILE");
  command->add_option("--tariffs", options->tariffs, "A tariff file, in the stored one's place")
      ->type_name("FILE");
  command->add_option("--kind", options->kind, "How the program would be given the files")
      ->check(CLI::IsMember({"named", "stored"}));
  command->add_flag("--json", options->json, "Print JSON");
  command->callback([options, &work] { work = [options] { return check(*options); }; });
}

}  // namespace quenby
