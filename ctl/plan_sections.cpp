#include "ctl/plan_sections.h"

#include <map>
#include <set>
#include <sstream>

#include "model/rate.h"

namespace quenby {
namespace {

// The values of a section by key; those of a key that stands several times with commas.
using Values = std::map<std::string, std::string>;

Values values_of(const TariffSettings& tariff) {
  TariffSet one;
  one.addTariff(tariff);
  std::istringstream text(one.text());
  Values values;
  for (std::string line; std::getline(text, line);) {
    const std::size_t equals = line.find('=');
    if (line.front() == '[' || equals == std::string::npos) continue;
    std::string& value = values[line.substr(0, equals)];
    value += (value.empty() ? "" : ", ") + line.substr(equals + 1);
  }
  return values;
}

template <typename D>
void add_speeds(const BandwidthSettingsInterface<D>& settings, Values& values) {
  if (settings.download.speed != kNeverSet)
    values["download_speed"] = std::to_string(settings.download.speedKbps());
  if (settings.upload.speed != kNeverSet)
    values["upload_speed"] = std::to_string(settings.upload.speedKbps());
}

Values values_of(const GlobalSettings& line) {
  Values values = {{"enabled", line.enabled ? "true" : "false"}};
  if (!line.wan.empty()) values["wan"] = line.wan;
  if (line.ipv6) values["ipv6"] = "true";
  add_speeds(line, values);
  return values;
}

Values values_of(const GlobalSet& set, bool of_line) {
  if (of_line) return set.has_global ? values_of(set.global) : Values();
  Values values;
  if (set.has_default) add_speeds(set.defaults, values);
  return values;
}

std::optional<std::string> value(const Values& values, const std::string& key) {
  const auto found = values.find(key);
  if (found == values.end()) return std::nullopt;
  return found->second;
}

// Most tariffs of a long list are as they were.
bool is_unchanged(const TariffSettings& before, const TariffSettings& after) {
  return before == after && before.address_texts == after.address_texts;
}

// Nothing in it when both are the same.
SectionChange compare(const std::string& name, const Values& before, const Values& after) {
  std::set<std::string> keys;
  for (const Values* values : {&before, &after}) {
    for (const auto& [key, text] : *values) keys.insert(key);
  }
  SectionChange change{name, {}};
  for (const std::string& key : keys) {
    if (value(before, key) != value(after, key))
      change.values.push_back({key, value(before, key), value(after, key)});
  }
  return change;
}

}  // namespace

void compare_sections(const Edit& edit, std::vector<SectionChange>& line,
                      std::vector<std::string>& added, std::vector<std::string>& removed,
                      std::vector<SectionChange>& changed) {
  for (const bool of_line : {true, false}) {
    SectionChange change =
        compare(of_line ? GlobalSettings::name() : DefaultSettings::name(),
                values_of(edit.line_before, of_line), values_of(edit.line, of_line));
    if (!change.values.empty()) line.push_back(std::move(change));
  }
  for (const TariffSettings& tariff : edit.tariffs.tariffs()) {
    const auto before = edit.stored.find(tariff.name);
    if (before == edit.stored.tariffs().end()) {
      added.push_back(tariff.name);
      continue;
    }
    if (is_unchanged(*before, tariff)) continue;
    SectionChange change = compare(tariff.name, values_of(*before), values_of(tariff));
    if (!change.values.empty()) changed.push_back(std::move(change));
  }
  for (const TariffSettings& tariff : edit.stored.tariffs()) {
    if (!edit.tariffs.exists(tariff.name)) removed.push_back(tariff.name);
  }
}

}  // namespace quenby
