#include <cmath>
#include <functional>
#include <map>

#include "ctl/warnings.h"
#include "model/ip6_prefix.h"
#include "model/rate.h"

namespace quenby {
namespace {

// What a number stands for, which decides what becomes of its fraction.
enum class Unit { kbit, bytes, none, factor };

const std::map<std::string, Unit>& number_keys() {
  static const std::map<std::string, Unit> kUnits = {
      {"download_speed", Unit::kbit},       {"upload_speed", Unit::kbit},
      {"download_burst_rate", Unit::kbit},  {"upload_burst_rate", Unit::kbit},
      {"download_burst_size", Unit::bytes}, {"upload_burst_size", Unit::bytes},
      {"aggregation", Unit::factor},        {"id", Unit::none},
  };
  return kUnits;
}

std::string with_unit(const std::string& number, Unit unit) {
  if (unit == Unit::kbit) return number + " kbit/s";
  return unit == Unit::bytes ? number + " bytes" : number;
}

// Everything above it has no fraction.
constexpr double kLastFraction = 9007199254740992.0;

bool loses_fraction(double number, Unit unit) {
  return unit != Unit::factor && number >= 0.0 && number < kLastFraction &&
         number != std::floor(number);
}

class Values {
 public:
  Values(const std::string& file, Findings& findings) : file_(file), findings_(findings) {}

  void look_at(const IniEntry& entry, Unit unit) {
    std::string rest;
    const double number = get_num(entry.value, rest);
    if (unit == Unit::kbit && number < 0.0) return warn_of_negative(entry);
    if (!rest.empty()) {
      const std::string read = entry.value.substr(0, entry.value.size() - rest.size());
      warn(entry, "text-after-number",
           quenby::quoted(entry.value) + " is read as " + with_unit(read, unit) + ": " +
               quenby::quoted(rest) + " is ignored");
    }
    if (loses_fraction(number, unit)) {
      warn(entry, "fraction",
           quenby::quoted(entry.value) + " is stored as " +
               with_unit(std::to_string(static_cast<std::int64_t>(number)), unit) +
               ": the fraction is cut");
    }
    if (unit == Unit::factor && number == 0.0)
      warn(entry, "aggregation-0", "an aggregation of 0 changes nothing");
  }

  void look_at_address(const IniEntry& entry) {
    const std::size_t slash = entry.value.find('/');
    if (slash == std::string::npos || entry.value.substr(slash) == "/32") return;
    warn(entry, "prefix-length",
         quenby::quoted(entry.value) + " is the address " + entry.value.substr(0, slash) +
             " alone: what stands after it widens nothing");
  }

  void look_at_prefix(const IniEntry& entry) {
    const auto prefix = parse_ip6_prefix(entry.value);
    const auto address = parse_ip6_prefix(entry.value.substr(0, entry.value.find('/')));
    if (!prefix || address->address == prefix->address) return;
    warn(entry, "host-bits",
         quenby::quoted(entry.value) + " is stored as " + to_text(*prefix) +
             ": the bits after the prefix are cleared");
  }

  void look_at_queue(const IniEntry& entry) {
    TariffSettings tariff;
    tariff.setQDisc(entry.value);
    if (entry.value == tariff.qdisc_str()) return;
    warn(entry, "unknown-queue",
         quenby::quoted(entry.value) +
             " is no queueing discipline that the program knows: there is none");
  }

 private:
  // Whatever is no number reads as -1 too.
  void warn_of_negative(const IniEntry& entry) {
    const char* const reads =
        entry.value.starts_with('-') ? " is read as -1" : " is no number and is read as -1";
    const char* const means = entry.key.ends_with("_speed") ? ", which stands for no speed" : "";
    warn(entry, "negative-speed", quenby::quoted(entry.value) + reads + means);
  }

  void warn(const IniEntry& entry, const char* code, const std::string& text) {
    findings_.push_back({file_, entry.value_at, Severity::warning, code, text});
  }

  const std::string& file_;
  Findings& findings_;
};

template <typename Config>
void look(const CheckedFile<Config>& file, Findings& findings) {
  if (!file.source) return;
  Values values(file.source->path(), findings);
  for (const IniSection& section : file.outline) {
    for (const IniEntry& entry : section.entries) {
      const auto unit = number_keys().find(entry.key);
      if (unit != number_keys().end()) values.look_at(entry, unit->second);
      if (entry.key == "ip") values.look_at_address(entry);
      if (entry.key == "ip6") values.look_at_prefix(entry);
      if (entry.key == "queuing_discipline") values.look_at_queue(entry);
    }
  }
}

}  // namespace

void warn_of_values(const CheckedFile<GlobalSet>& file, Findings& findings) {
  look(file, findings);
}

void warn_of_values(const CheckedFile<TariffSet>& file, Findings& findings) {
  look(file, findings);
}

}  // namespace quenby
