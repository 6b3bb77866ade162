#include "ctl/remedy.h"

#include "cli/system.h"

namespace quenby {
namespace {

// Not taken away by a repair or a teardown, as somebody else's programs may hang on it.
std::string remedy_of_ingress(const Drift& drift) {
  const std::string kind = drift.detail.substr(0, drift.detail.find(','));
  return "tc qdisc del dev " + shell_word(drift.place) + ' ' + kind + " && " + kRepair;
}

// Of a table that cannot be listed.
std::string remedy_of_table(const std::string& object) {
  constexpr std::string_view kIp6Table = "IPv6 table ";
  constexpr std::string_view kTable = "table ";
  const bool ipv6 = object.starts_with(kIp6Table);
  return std::string("see to what \"") + (ipv6 ? "ip6tables" : "iptables") + " -t " +
         object.substr((ipv6 ? kIp6Table : kTable).size()) + " -S\" says, then " + kRepair;
}

}  // namespace

std::string remedy_of(const Drift& drift) {
  const bool is_set_type = drift.place == "set" && drift.kind == DriftKind::different &&
                           drift.detail.starts_with("type ");
  if (is_set_type) return "quenby --stop && ipset destroy " + drift.object + " && quenby --load";
  // Entries of a set, and class numbers, are mended without a request to a device.
  const bool is_of_device = drift.place != "set" && drift.object != "class numbers";
  if (!drift.mendings.empty() || !is_of_device) return kRepair;
  if (drift.place == "firewall") return remedy_of_table(drift.object);
  if (drift.object.starts_with("qdisc ffff:")) return remedy_of_ingress(drift);
  return "quenby --stop && quenby --load";
}

}  // namespace quenby
