#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "model/family.h"
#include "tc/drift.h"

/// Our rules in the firewall, as the commands ask for them and as iptables lists them.
namespace quenby {

/// The words of a rule after its chain, in the form that iptables lists.
using FirewallRule = std::vector<std::string>;
/// Table and chain.
using FirewallChain = std::pair<std::string, std::string>;

struct WantedFirewall {
  /// The rules of chains that are all ours, in order.
  std::map<FirewallChain, std::vector<FirewallRule>> rules;
  /// The platform's chains that jump to the drop chain.
  std::set<FirewallChain> jumps;
  /// The first rule of the chain that says whether connections are tracked; empty for no matter
  /// which.
  FirewallRule tracking;
};

/// What a list of our commands makes of the firewall.
WantedFirewall wanted_firewall(const std::string& commands);

struct StandingFirewall {
  std::map<FirewallChain, std::vector<FirewallRule>> rules;
  /// The tables that cannot be listed, of which nothing is known.
  std::set<std::string> unknown;
};

/// Takes what iptables lists of a table into account.
void read_listing(const std::string& table, const std::string& listing, StandingFirewall& firewall);
/// Asks iptables for the three tables that have rules of ours.
StandingFirewall read_firewall(Family family = Family::ipv4);

/// In what the firewall differs. A chain of the platform's that is missing, or that nothing leads
/// to, stands for its rules; the platform's script mends it. A table that cannot be listed is a
/// difference of its own, which nothing here mends.
std::vector<Drift> firewall_drift(const WantedFirewall& wanted, const StandingFirewall& standing,
                                  Family family = Family::ipv4);

}  // namespace quenby
