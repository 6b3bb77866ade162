#pragma once

#include <cstdint>
#include <string>

#include "model/family.h"
#include "model/resolved_settings.h"

/// The shell commands that put our rules into the firewall and take them out. Each text is a list
/// joined with ";" that goes to the shell as it stands, or is empty. Packet marks use `kMarkMask`
/// alone. IPv6 has the same rules by ip6tables.
namespace quenby {

/// The address set by which the marking rules find a packet's mark.
inline constexpr const char* kAddressSet = "kavo_opt_shaper";
inline constexpr const char* kAddressSet6 = "kavo_opt_shaper6";
const char* address_set_name(Family family);

/// The chains whose rules are all ours, and the one that holds what is dropped.
inline constexpr const char* kMarkOutChain = "KAVO_QOS_FW_OUT_HOOK";
inline constexpr const char* kMarkInChain = "KAVO_QOS_FW_IN_HOOK";
inline constexpr const char* kDropChain = "KAVO_OPT_QOS_HOOK";
/// The platform's chains that jump to the drop chain, and the one whose first rule says whether
/// connections are tracked.
inline constexpr const char* kForwardOutChain = "OSTREA_FW_OUT_HOOK";
inline constexpr const char* kForwardInChain = "OSTREA_FW_IN_HOOK";
inline constexpr const char* kTrackingChain = "QOS_CONNTRACK";

/// Appends `commands` to `list`, with ";" between the two. Empty commands append nothing.
void append_commands(std::string& list, const std::string& commands);

/// Takes every rule of ours out of the marking chains and the jumps out of the firewall's hooks.
std::string clean_rules(Family family = Family::ipv4);

/// Rules for upload through the WAN device: drop everything (speed 0), or mark every forwarded
/// packet with its tariff's class. `default_mark` marks the packets that belong to no tariff.
std::string upload_rules(const ResolvedLine& line, std::uint32_t default_mark,
                         Family family = Family::ipv4);

/// Rules for download through the IFB device. `wan_found` tells whether the WAN device exists.
std::string download_rules(const ResolvedLine& line, std::uint32_t default_mark, bool wan_found,
                           Family family = Family::ipv4);

/// Rules that send forwarded packets through the IMQ device, on their way out and on their way in
/// from `wan`.
std::string imq_upload_rules();
std::string imq_download_rules(const std::string& wan);

/// Whether some direction is blocked, so that rules of ours go into the drop chain.
bool needs_drop_chain(const ResolvedSettings& settings);

/// Empties the drop chain, or makes it where it is missing.
std::string drop_chain_commands(Family family = Family::ipv4);

/// What comes before the rules of a family: those of a run before go, and with `drop_chain` the
/// drop chain is made ready.
std::string clean_list(Family family, bool drop_chain);

/// Has the platform's firewall bring its chains, hooks and the address set in place.
std::string firewall_start_command();

/// Puts connection tracking back to the platform's own choice.
std::string tracking_as_before(Family family = Family::ipv4);

/// Ends the list that removes our rules: empties the drop chain and puts connection tracking back
/// to the platform's own choice.
std::string firewall_end_commands(Family family = Family::ipv4);

/// What comes before the first object of IPv6: the firewall's chains for it, without rules of ours.
/// Their script's failure is a complaint; where a chain is missing the rules fail.
std::string ip6_begin_list(bool drop_chain);

/// Takes our IPv6 rules away.
std::string ip6_end_list();

}  // namespace quenby
