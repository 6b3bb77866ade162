#include <map>

#include "ctl/direction_name.h"
#include "ctl/records.h"
#include "ctl/warnings.h"
#include "model/rate.h"

namespace quenby {
namespace {

// What each of the kernel's address sets holds.
constexpr std::size_t kMostAddresses = 65536;
constexpr const char* kTooManyAddresses =
    "the address set holds 65536 addresses, and this is one more: a load fails";
constexpr const char* kTooManyPrefixes =
    "the address set of IPv6 holds 65536 prefixes, and this is one more: a load with ipv6=true "
    "fails";

class Sections {
 public:
  Sections(const std::string& file, FileKind kind, Findings& findings)
      : file_(file), kind_(kind), findings_(findings) {}

  void look_at(const IniSection& section) {
    const TariffSettings tariff = record_of(section);
    if (tariff.addresses.empty() && tariff.prefixes.empty()) {
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
    if (direction.speed == kNeverSet) {
      warn(section.at, "no-speed",
           "tariff " + quoted(section.name) + " has no " + direction_key(way, "speed") + ": " +
               (kind_ == FileKind::named ? "it is stored as 0, and nothing passes"
                                         : "it gets no class in this direction"));
    }
    if (direction.burst_rate > 0 && direction.burst_size == 0) {
      warn(section.last(direction_key(way, "burst_rate"))->value_at, "burst-without-size",
           "a burst rate without " + direction_key(way, "burst_size") + " has no effect");
    }
  }

  void look_at_addresses(const IniSection& section, const TariffSettings& tariff) {
    ++number_;
    auto address = tariff.addresses.begin();
    auto prefix = tariff.prefixes.begin();
    for (const IniEntry& entry : section.entries) {
      const Owner owner{number_, section.name, entry.value_at.line};
      if (entry.key == "ip") {
        const std::string text = entry.value.substr(0, entry.value.find('/'));
        if (is_one_too_many(addresses_, *address++, text, owner, entry))
          warn(entry.value_at, "too-many-addresses", kTooManyAddresses);
      }
      if (entry.key == "ip6") {
        const std::string text = to_text(*prefix);
        if (is_one_too_many(prefixes_, *prefix++, text, owner, entry))
          warn(entry.value_at, "too-many-prefixes", kTooManyPrefixes);
      }
    }
  }

  // Notes an address or prefix. Whether it is the first that its set has no room for.
  template <typename Key>
  bool is_one_too_many(std::map<Key, Owner>& owners, const Key& key, const std::string& text,
                       const Owner& owner, const IniEntry& entry) {
    const auto [first, is_new] = owners.emplace(key, owner);
    if (!is_new) warn_of_second(entry, text, first->second);
    return is_new && owners.size() == kMostAddresses + 1;
  }

  void warn_of_second(const IniEntry& entry, const std::string& address, const Owner& first) {
    const std::string line = " (line " + std::to_string(first.line) + ")";
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
  std::map<std::uint32_t, Owner> addresses_;
  std::map<Ip6Prefix, Owner> prefixes_;
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
