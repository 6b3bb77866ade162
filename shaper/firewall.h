#pragma once

#include <string>

#include "model/global_set.h"

/// The command lists that go to the shell before and after the devices' work. The rules of one
/// device are in tc/firewall_rules.h.
namespace quenby {

/// Whether some direction is blocked, so that rules of ours go into the drop chain. `set` after
/// rate resolution.
bool needs_drop_chain(const GlobalSet& set);

/// Empties the drop chain, or makes it where it is missing.
std::string drop_chain_commands();

/// Has the platform's firewall bring its chains, hooks and the address set in place.
std::string firewall_start_command();

/// Ends the list that removes our rules: empties the drop chain and puts connection tracking back
/// to the platform's own choice.
std::string firewall_end_commands();

}  // namespace quenby
