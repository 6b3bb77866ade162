#include "ctl/remedy.h"

#include "cli/system.h"

namespace quenby {
namespace {

struct Adviser {
  const std::string& device;

  std::string operator()(const Mendings& requests) const {
    return requests.empty() ? "quenby --stop && quenby --load" : kRepair;
  }
  std::string operator()(MendedOtherwise) const { return kRepair; }
  std::string operator()(const OtherSetType& set) const {
    return "quenby --stop && ipset destroy " + set.name + " && quenby --load";
  }
  std::string operator()(const UnlistedTable& table) const {
    const char* const program = table.family == Family::ipv6 ? "ip6tables" : "iptables";
    return std::string("see to what \"") + program + " -t " + table.name + " -S\" says, then " +
           kRepair;
  }
  std::string operator()(const OtherIngress& ingress) const {
    return "tc qdisc del dev " + shell_word(device) + ' ' + ingress.kind + " && " + kRepair;
  }
};

}  // namespace

std::string remedy_of(const Drift& drift) { return std::visit(Adviser{drift.place}, drift.cure); }

}  // namespace quenby
