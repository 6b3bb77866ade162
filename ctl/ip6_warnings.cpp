#include <algorithm>

#include "ctl/records.h"
#include "ctl/warnings.h"
#include "model/rate.h"

namespace quenby {
namespace {

void warn(const IniText& source, Position at, const char* code, const std::string& text,
          Findings& findings) {
  findings.push_back({source.path(), at, Severity::warning, code, text});
}

const IniEntry* first_prefix(const IniSection& section) {
  const auto is_prefix = [](const IniEntry& entry) { return entry.key == "ip6"; };
  const auto found = std::find_if(section.entries.begin(), section.entries.end(), is_prefix);
  return found == section.entries.end() ? nullptr : &*found;
}

// The place of the value that counts, in the last section of the line.
std::optional<Position> place_of_switch(const IniOutline& outline) {
  std::optional<Position> place;
  for (const IniSection& section : outline) {
    const IniEntry* const entry = section.last("ipv6");
    if (section.name == GlobalSettings::name() && entry != nullptr) place = entry->value_at;
  }
  return place;
}

void look_at_line(const CheckedFile<GlobalSet>& line, Findings& findings) {
  const auto place = place_of_switch(line.outline);
  if (!line.config.global.ipv6 || !line.config.global.wan.empty() || !place) return;
  warn(*line.source, *place, "ipv6-without-wan",
       "ipv6=true has no effect without \"wan\": IPv6 is shaped on a WAN interface alone",
       findings);
}

// What the tariffs' prefixes come to on a line that does not shape IPv6.
void look_at_prefixes(const CheckedFile<TariffSet>& tariffs, const GlobalSettings& line,
                      Findings& findings) {
  const IniEntry* first = nullptr;
  for (const IniSection& section : tariffs.outline) {
    const IniEntry* const entry = first_prefix(section);
    if (entry == nullptr) continue;
    if (first == nullptr) first = entry;
    if (record_of(section).addresses.empty()) {
      warn(*tariffs.source, section.at, "no-address",
           "tariff " + quoted(section.name) +
               " has IPv6 prefixes alone and gets no class: IPv6 is not shaped",
           findings);
    }
  }
  if (first == nullptr) return;
  warn(*tariffs.source, first->value_at, "ipv6-off",
       std::string("no \"ip6\" has an effect: the line has no ") +
           (line.ipv6 ? "\"wan\"" : "\"ipv6=true\""),
       findings);
}

}  // namespace

void warn_of_ipv6(const Whole& whole, Findings& findings) {
  if (whole.line == nullptr) return;
  const GlobalSettings& line = whole.line->config.global;
  if (whole.line->asked_for) look_at_line(*whole.line, findings);
  if (whole.tariffs == nullptr || !whole.tariffs->asked_for || line.shapes_ipv6()) return;
  look_at_prefixes(*whole.tariffs, line, findings);
}

}  // namespace quenby
