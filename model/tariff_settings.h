#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/bandwidth_settings.h"
#include "model/ip6_prefix.h"
#include "model/tariff_dir_settings.h"

namespace quenby {

/// One subscriber's tariff. The setters take the text of a configuration value; false means that it
/// was refused.
class TariffSettings : public BandwidthSettingsInterface<TariffDirSettings> {
 public:
  void clear() override;

  /// Every field but the address texts: two tariffs whose addresses differ only in the prefix
  /// length are shaped alike and are equal.
  bool operator==(const TariffSettings& other) const;

  /// Stores a class number in the tariff and in both directions; refused like there.
  bool setID(int number);
  /// The same from text; a fraction is dropped.
  bool setID(const std::string& text);
  /// Takes over the class number of a tariff of the same name; false when the names differ.
  bool setID(const TariffSettings& other);

  /// Sets the divisor of the guaranteed rate in both directions. 0 is accepted and changes no
  /// divisor. The text is kept in every case, even when the number is refused.
  bool setAggregation(const std::string& text);

  /// Sets the leaf queueing discipline in the tariff and in both directions. An unknown name means
  /// none. Always true.
  bool setQDisc(const std::string& text);

  /// Adds the IPv4 address that stands before the first "/". The prefix length is kept as text and
  /// not looked at. Refused, with nothing stored, when that is no IPv4 address.
  bool addCIDR(const std::string& text);

  /// Adds an IPv6 prefix, of which the whole belongs to the subscriber. Refused, with nothing
  /// stored, as in `parse_ip6_prefix`.
  bool addPrefix(const std::string& text);

  /// Whether the tariff has any address. Prefixes count with `ipv6`, where IPv6 is shaped, alone.
  bool has_address(bool ipv6) const;
  /// Whether the tariff has a class in this direction: it has an address and its speed is set.
  bool takes_part(Direction way, bool ipv6 = false) const;

  /// "none", "pfifo", "sfq" or "fq_codel".
  std::string qdisc_str() const;

  std::string aggregation_text = "1";
  std::int32_t qdisc = kQdiscNone;
  /// The section name; the key of every lookup.
  std::string name;
  /// Class number; 0 while it has none.
  std::int32_t id = 0;
  /// IPv4 addresses in network byte order, in file order.
  std::vector<std::uint32_t> addresses;
  /// The texts of the addresses as written, parallel to `addresses`.
  std::vector<std::string> address_texts;
  /// In file order.
  std::vector<Ip6Prefix> prefixes;
};

/// By name alone, byte by byte as unsigned characters.
bool operator<(const TariffSettings& a, const TariffSettings& b);

}  // namespace quenby
