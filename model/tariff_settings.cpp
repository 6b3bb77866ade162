#include "model/tariff_settings.h"

#include <arpa/inet.h>

#include <array>

#include "model/number.h"
#include "model/rate.h"

namespace quenby {
namespace {

// Indexed by the kind.
constexpr std::array<const char*, 4> kQdiscNames = {"none", "pfifo", "sfq", "fq_codel"};

}  // namespace

void TariffSettings::clear() { *this = TariffSettings(); }

bool TariffSettings::operator==(const TariffSettings& other) const {
  return id == other.id && name == other.name && aggregation_text == other.aggregation_text &&
         addresses == other.addresses && prefixes == other.prefixes && qdisc == other.qdisc &&
         download == other.download && upload == other.upload;
}

bool TariffSettings::setID(int number) {
  if (!download.setID(number) || !upload.setID(number)) return false;
  id = number;
  return true;
}

bool TariffSettings::setID(const std::string& text) {
  double number = 0.0;
  return parseNonNegative(text, number) && setID(to_int32_saturated(number));
}

bool TariffSettings::setID(const TariffSettings& other) {
  if (name != other.name) return false;
  id = other.id;
  download.id = other.id;
  upload.id = other.id;
  return true;
}

bool TariffSettings::setAggregation(const std::string& text) {
  aggregation_text = text;
  double factor = 0.0;
  if (!parseNonNegative(text, factor)) return false;
  if (factor > 0.0) {
    download.aggregation = factor;
    upload.aggregation = factor;
  }
  return true;
}

bool TariffSettings::setQDisc(const std::string& text) {
  qdisc = kQdiscNone;
  for (std::size_t kind = kQdiscPfifo; kind < kQdiscNames.size(); ++kind) {
    if (text == kQdiscNames[kind]) qdisc = static_cast<std::int32_t>(kind);
  }
  download.qdisc = qdisc;
  upload.qdisc = qdisc;
  return true;
}

bool TariffSettings::addCIDR(const std::string& text) {
  const std::string address = text.substr(0, text.find('/'));
  in_addr parsed{};
  if (inet_pton(AF_INET, address.c_str(), &parsed) <= 0) return false;
  addresses.push_back(parsed.s_addr);
  address_texts.push_back(text);
  return true;
}

bool TariffSettings::addPrefix(const std::string& text) {
  const auto prefix = parse_ip6_prefix(text);
  if (prefix) prefixes.push_back(*prefix);
  return prefix.has_value();
}

bool TariffSettings::has_address(bool ipv6) const {
  return !addresses.empty() || (ipv6 && !prefixes.empty());
}

bool TariffSettings::takes_part(Direction way, bool ipv6) const {
  return has_address(ipv6) && direction(way).speed != kNeverSet;
}

std::string TariffSettings::qdisc_str() const {
  const auto kind = static_cast<std::size_t>(qdisc);
  return kQdiscNames[kind < kQdiscNames.size() ? kind : kQdiscNone];
}

bool operator<(const TariffSettings& a, const TariffSettings& b) { return a.name < b.name; }

}  // namespace quenby
