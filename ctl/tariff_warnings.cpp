#include <map>

#include "ctl/records.h"
#include "ctl/warnings.h"
#include "model/rate.h"

namespace quenby {
namespace {

// What the kernel's address set holds.
constexpr std::size_t kMostAddresses = 65536;

std::string direction_name(Direction way) {
  return way == Direction::download ? "download" : "upload";
}

class Sections {
 public:
  Sections(const std::string& file, FileKind kind, Findings& findings)
      : file_(file), kind_(kind), findings_(findings) {}

  void look_at(const IniSection& section) {
    const TariffSettings tariff = record_of(section);
    if (tariff.addresses.empty()) {
      warn(section.at, "no-address",
           "tariff " + quoted(section.name) + " has no address and gets no class");
    }
    for (const Direction way : kDirections) look_at(section, tariff.direction(way), way);
    look_at_addresses(section, tariff);
  }

 private:
  // The place of an address.
  struct Owner {
    std::size_t section;
    std::string name;
    std::size_t line;
  };

  void look_at(const IniSection& section, const TariffDirSettings& direction, Direction way) {
    const std::string prefix = direction_name(way);
    if (direction.speed == kNeverSet) {
      warn(section.at, "no-speed",
           "tariff " + quoted(section.name) + " has no " + prefix + "_speed: " +
               (kind_ == FileKind::named ? "it is stored as 0, and nothing passes"
                                         : "it gets no class in this direction"));
    }
    if (direction.burst_rate > 0 && direction.burst_size == 0) {
      warn(section.last(prefix + "_burst_rate")->value_at, "burst-without-size",
           "a burst rate without " + prefix + "_burst_size has no effect");
    }
  }

  void look_at_addresses(const IniSection& section, const TariffSettings& tariff) {
    ++number_;
    std::size_t next = 0;
    for (const IniEntry& entry : section.entries) {
      if (entry.key == "ip") look_at_address(section, entry, tariff.addresses.at(next++));
    }
  }

  void look_at_address(const IniSection& section, const IniEntry& entry, std::uint32_t address) {
    const Owner owner{number_, section.name, entry.value_at.line};
    const auto [first, is_new] = owners_.emplace(address, owner);
    if (!is_new) warn_of_second(entry, first->second);
    if (is_new && owners_.size() == kMostAddresses + 1) {
      warn(entry.value_at, "too-many-addresses",
           "the address set holds 65536 addresses, and this is one more: a load fails");
    }
  }

  void warn_of_second(const IniEntry& entry, const Owner& first) {
    const std::string line = " (line " + std::to_string(first.line) + ")";
    const std::string address = entry.value.substr(0, entry.value.find('/'));
    warn(entry.value_at, "address-twice",
         first.section == number_ ? address + " stands in this tariff already" + line
                                  : address + " stands in tariff " + quoted(first.name) + " too" +
                                        line + ": it belongs to one of them");
  }

  void warn(Position at, const char* code, const std::string& text) {
    findings_.push_back({file_, at, Severity::warning, code, text});
  }

  const std::string& file_;
  FileKind kind_;
  Findings& findings_;
  std::size_t number_ = 0;
  std::map<std::uint32_t, Owner> owners_;
};

}  // namespace

TariffSettings record_of(const IniSection& section) {
  TariffSettings tariff;
  tariff.name = section.name;
  for (const IniEntry& entry : section.entries)
    set_key(tariff_keys(), entry.key, tariff, entry.value);
  return tariff;
}

void warn_of_sections(const CheckedFile<TariffSet>& file, FileKind kind, Findings& findings) {
  if (!file.source || !file.errors.empty()) return;
  Sections sections(file.source->path(), kind, findings);
  for (const IniSection& section : file.outline) sections.look_at(section);
}

void warn_of_sections(const CheckedFile<GlobalSet>& file, Findings& findings) {
  if (!file.source || !file.errors.empty()) return;
  const IniSection* last = nullptr;
  for (const IniSection& section : file.outline) {
    if (section.name == GlobalSettings::name()) last = &section;
  }
  if (last == nullptr || last->last("enabled") != nullptr) return;
  findings.push_back({file.source->path(), last->at, Severity::warning, "not-enabled",
                      "no \"enabled\" in this section: nothing is shaped"});
}

}  // namespace quenby
