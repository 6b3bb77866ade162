#pragma once

#include <cstdint>
#include <string>

#include "model/global_set.h"

/// The shell commands that put our rules into the firewall and take them out. Each text is a list
/// joined with ";" that goes to the shell as it stands, or is empty. Packet marks use `kMarkMask`
/// alone.
namespace quenby {

/// The address set by which the marking rules find a packet's mark.
inline constexpr const char* kAddressSet = "kavo_opt_shaper";

/// Appends `commands` to `list`, with ";" between the two. Empty commands append nothing.
void append_commands(std::string& list, const std::string& commands);

/// Whether a direction without a speed of its own lets no packet pass that belongs to no tariff.
bool default_blocked(const GlobalSet& set, Direction way);

/// Takes every rule of ours out of the marking chains and the jumps out of the firewall's hooks.
std::string clean_rules();

/// Rules for upload through the WAN device: drop everything (speed 0), or mark every forwarded
/// packet with its tariff's class. `default_mark` marks the packets that belong to no tariff.
std::string upload_rules(const GlobalSet& set, std::uint32_t default_mark);

/// Rules for download through the IFB device. `wan_found` tells whether the WAN device exists.
std::string download_rules(const GlobalSet& set, std::uint32_t default_mark, bool wan_found);

/// Rules that send forwarded packets through the IMQ device, on their way out and on their way in
/// from `wan`.
std::string imq_upload_rules();
std::string imq_download_rules(const std::string& wan);

/// Whether some direction is blocked, so that rules of ours go into the drop chain. `set` is
/// resolved.
bool needs_drop_chain(const GlobalSet& set);

/// Empties the drop chain, or makes it where it is missing.
std::string drop_chain_commands();

/// Has the platform's firewall bring its chains, hooks and the address set in place.
std::string firewall_start_command();

/// Ends the list that removes our rules: empties the drop chain and puts connection tracking back
/// to the platform's own choice.
std::string firewall_end_commands();

}  // namespace quenby
