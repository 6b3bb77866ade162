#include <cstdio>
#include <limits>
#include <vector>

#include "ctl/direction_name.h"
#include "ctl/records.h"
#include "ctl/warnings.h"
#include "model/number.h"
#include "model/rate.h"
#include "model/rate_resolution.h"
#include "tc/device_tree.h"

namespace quenby {
namespace {

std::string kbit(std::int64_t bytes) { return std::to_string(bytes / kBytesPerKbit) + " kbit/s"; }

std::string decimal(double number) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.3g", number);
  return text;
}

// A place in one of the files.
struct Place {
  std::string file;
  Position at;
};

class Rates {
 public:
  Rates(const Whole& whole, Findings& findings);

  void look() {
    for (const Direction way : kDirections) {
      look_at_speeds(way);
      look_at_sum(way);
    }
    look_at_bursts();
  }

 private:
  template <typename Config>
  void look_at_speeds(const CheckedFile<Config>* file, Direction way);
  void look_at_speeds(Direction way) {
    look_at_speeds(whole_.line, way);
    look_at_speeds(whole_.tariffs, way);
  }
  void look_at_sum(Direction way);
  Place place_of_sum(Direction way) const;
  void look_at_bursts();
  void look_at_burst(const IniSection& section, const ResolvedTariff& tariff, Direction way);

  void warn(const Place& place, const char* code, const std::string& text) {
    findings_.push_back({place.file, place.at, Severity::warning, code, text});
  }

  const Whole& whole_;
  Findings& findings_;
  ResolvedSettings resolved_;
};

Rates::Rates(const Whole& whole, Findings& findings) : whole_(whole), findings_(findings) {
  constexpr std::int64_t kUnlimited = std::numeric_limits<std::int64_t>::max();
  resolved_ = resolve(whole.line != nullptr ? whole.line->config : GlobalSet(),
                      whole.tariffs != nullptr ? whole.tariffs->config : TariffSet(),
                      whole.port_speed.value_or(kUnlimited));
}

template <typename Config>
void Rates::look_at_speeds(const CheckedFile<Config>* file, Direction way) {
  if (file == nullptr || !file->asked_for || !whole_.port_speed) return;
  for (const IniSection& section : file->outline) {
    const IniEntry* const entry = section.last(direction_key(way, "speed"));
    GlobalDirSettings direction(way == Direction::download);
    if (entry == nullptr || !direction.setSpeed(entry->value)) continue;
    if (direction.speed > *whole_.port_speed) {
      warn({file->source->path(), entry->value_at}, "above-port",
           kbit(direction.speed) + " is above the " + kbit(*whole_.port_speed) +
               " of the port, to which it is cut");
    }
  }
}

// The line's speed, or else the first speed that there is.
Place Rates::place_of_sum(Direction way) const {
  std::vector<Place> places;
  const auto note = [&places, way](const auto* file, bool global_alone) {
    if (file == nullptr || !file->asked_for) return;
    for (const IniSection& section : file->outline) {
      const IniEntry* const entry = section.last(direction_key(way, "speed"));
      if (entry != nullptr && (!global_alone || section.name == GlobalSettings::name()))
        places.push_back({file->source->path(), entry->value_at});
    }
  };
  note(whole_.line, true);
  note(whole_.line, false);
  note(whole_.tariffs, false);
  return places.empty() ? Place{} : places.front();
}

void Rates::look_at_sum(Direction way) {
  const RateSummary& r = resolved_.summary;
  const bool down = way == Direction::download;
  const std::int64_t sum = down ? r.down_sum : r.up_sum;
  const std::int64_t limit = down ? r.down_limit : r.up_limit;
  const Place place = place_of_sum(way);
  if (limit >= sum || limit <= 0 || place.file.empty()) return;
  warn(place, "oversubscribed",
       std::string("the guarantees of ") + direction_name(way) + " come to " + kbit(sum) +
           ", the limit is " + kbit(limit) + ": each tariff keeps " +
           decimal(static_cast<double>(limit) / static_cast<double>(sum)) +
           " of its own, and the default tariff none");
}

void Rates::look_at_bursts() {
  if (whole_.tariffs == nullptr || !whole_.tariffs->asked_for) return;
  const bool ipv6 = resolved_.configured.global.shapes_ipv6();
  for (const IniSection& section : whole_.tariffs->outline) {
    const TariffSettings record = record_of(section);
    const auto found = resolved_.tariffs.find(section.name);
    if (found == resolved_.tariffs.tariffs().end()) continue;
    for (const Direction way : kDirections) {
      if (record.takes_part(way, ipv6))
        look_at_burst(section, resolved_tariff(*found, way, resolved_.summary), way);
    }
  }
}

void Rates::look_at_burst(const IniSection& section, const ResolvedTariff& tariff, Direction way) {
  const IniEntry* const entry = section.last(direction_key(way, "burst_size"));
  const std::int64_t wanted = tariff.rates.burst;
  if (entry == nullptr || wanted <= 0) return;
  const HtbClass sent = tariff_branch(mark_side(way), tariff).htb;
  if (sent.burst < wanted) {
    warn({whole_.tariffs->source->path(), entry->value_at}, "long-burst",
         "a burst of " + std::to_string(wanted) + " bytes takes too long at the guaranteed " +
             kbit(tariff.rates.guarantee) + ": the kernel is given " + std::to_string(sent.burst));
  }
}

}  // namespace

void warn_of_rates(const Whole& whole, Findings& findings) { Rates(whole, findings).look(); }

}  // namespace quenby
